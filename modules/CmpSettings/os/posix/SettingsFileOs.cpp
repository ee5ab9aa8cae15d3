// POSIX backend of the settings file: open/read, and the atomic replacement
// with write, fsync, rename and an fsync of the directory so that the rename
// itself is durable.
#include "SettingsFileOs.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

namespace kestrel::settings {
namespace {

RTS_RESULT MapErrno(int err) {
    switch (err) {
    case ENOSPC:
#ifdef EDQUOT
    case EDQUOT:
#endif
        return ERR_DISK_FULL;
    case EACCES:
    case EPERM:
    case EROFS:
        return ERR_NO_ACCESS_RIGHTS;
    default:
        return ERR_FAILED;
    }
}

bool WriteAll(int fd, const char *p, std::size_t n) {
    while (n > 0) {
        ssize_t w = write(fd, p, n);
        if (w < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        p += w;
        n -= static_cast<std::size_t>(w);
    }
    return true;
}

void SyncDirectoryOf(const std::string &path) {
    std::string dir = ".";
    std::size_t slash = path.find_last_of('/');
    if (slash != std::string::npos)
        dir = slash == 0 ? "/" : path.substr(0, slash);
    int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        fsync(fd);
        close(fd);
    }
}

} // namespace

RTS_RESULT OsReadFile(const char *pszPath, std::string *pContents) {
    int fd = open(pszPath, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return ERR_NO_OBJECT;
    struct stat st {};
    if (fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
        close(fd);
        return ERR_NO_OBJECT;
    }
    pContents->clear();
    char buffer[8192];
    for (;;) {
        ssize_t r = read(fd, buffer, sizeof(buffer));
        if (r < 0) {
            if (errno == EINTR)
                continue;
            close(fd);
            return ERR_FAILED;
        }
        if (r == 0)
            break;
        pContents->append(buffer, static_cast<std::size_t>(r));
    }
    close(fd);
    return ERR_OK;
}

RTS_RESULT OsReplaceFile(const char *pszPath, const std::string &contents, WriteFault fault) {
    std::string target(pszPath);
    std::string temp = target + ".tmp";
    // Keep the permissions of the file being replaced.
    mode_t mode = 0644;
    struct stat st {};
    if (stat(pszPath, &st) == 0)
        mode = st.st_mode & 07777;
    int fd = fault == WriteFault::FailCreate ? -1 : open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    if (fd < 0)
        return fault == WriteFault::FailCreate ? ERR_NO_ACCESS_RIGHTS : MapErrno(errno);
    RTS_RESULT result = ERR_OK;
    if (fault == WriteFault::DiskFull) {
        WriteAll(fd, contents.data(), contents.size() / 2);
        result = ERR_DISK_FULL;
    } else if (!WriteAll(fd, contents.data(), contents.size()) || fsync(fd) != 0) {
        result = MapErrno(errno);
    }
    if (close(fd) != 0 && result == ERR_OK)
        result = MapErrno(errno);
    if (result != ERR_OK) {
        unlink(temp.c_str());
        return result;
    }
    if (fault == WriteFault::CrashBeforeRename)
        return ERR_FAILED; // the temporary file stays behind, as after a real crash
    if (rename(temp.c_str(), pszPath) != 0) {
        result = MapErrno(errno);
        unlink(temp.c_str());
        return result;
    }
    SyncDirectoryOf(target);
    return ERR_OK;
}

} // namespace kestrel::settings
