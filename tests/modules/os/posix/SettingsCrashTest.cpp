// A child rewriting the settings file is killed at a random moment: the file
// must hold exactly one complete version the child wrote, never a mix or a cut.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>
#include <set>
#include <string>

#include "CmpSettingsItf.h"
#include "../../ModuleTestSupport.h"

using namespace kestrel::test;

namespace {

// Large values make each write take long enough to be hit by the kill.
std::string Value(int i) {
    return std::string(64 * 1024, static_cast<char>('a' + i % 26));
}

std::string FileFor(const std::string &value) {
    return "; kept comment\n[A]\nk=" + value + "\n[B]\nx=1\n";
}

TEST(SettingsCrash, KilledWriterLeavesAWholeFile) {
    FakeCM cm;
    EnterModule(cm, CmpSettingsEntry, CMPID_CmpSettings);
    TempDir dir;
    std::set<std::string> versions;
    for (int i = 0; i < 26; ++i)
        versions.insert(FileFor(Value(i)));
    std::mt19937 random(1234);
    for (int round = 0; round < 15; ++round) {
        std::string path = dir.Write("crash.cfg", FileFor(Value(0)));
        ASSERT_EQ(SettgSetDatabaseName(path.c_str()), ERR_OK);
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            for (int i = 1;; ++i)
                SettgSetStringValue("A", "k", Value(i).c_str());
        }
        usleep(1000 + random() % 20000);
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status));
        std::string now = TempDir::Read(path);
        EXPECT_EQ(versions.count(now), 1u) << "round " << round << ": a broken file of " << now.size() << " bytes";
    }
}

} // namespace
