// Support of the host's tests: whole-file reads and writes, argument vectors,
// and a fresh temporary directory removed with its contents at the end.
#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace kestrel::test {

inline std::filesystem::path WriteFile(const std::filesystem::path &file, const std::string &content = "") {
    std::ofstream(file, std::ios::binary) << content;
    return file;
}

inline std::string ReadFile(const std::filesystem::path &file) {
    std::ifstream in(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Calls f(argc, argv) with a copy of the arguments as the process sees them.
// The program name holds ".cfg", so a scan that starts at argv[0] shows.
template <class F> auto WithArgs(std::vector<std::string> args, F f) {
    args.insert(args.begin(), "/opt/a.cfg/KESTRELControl");
    std::vector<char *> argv;
    for (std::string &s : args)
        argv.push_back(s.data());
    argv.push_back(nullptr);
    return f(static_cast<int>(args.size()), argv.data());
}

class TempDir {
  public:
    explicit TempDir(const std::string &stem = "kestrel-host") {
        static int counter = 0;
        auto stamp = std::to_string(std::chrono::steady_clock::now().time_since_epoch().count());
        path_ = std::filesystem::temp_directory_path() / (stem + "-" + stamp + "-" + std::to_string(counter++));
        std::filesystem::create_directories(path_);
    }
    ~TempDir() { std::filesystem::remove_all(path_, ec_); }
    const std::filesystem::path &Path() const { return path_; }
    std::filesystem::path operator/(const std::string &name) const { return path_ / name; }

  private:
    std::filesystem::path path_;
    std::error_code ec_;
};

} // namespace kestrel::test
