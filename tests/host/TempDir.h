// A fresh directory under the system's temporary directory, removed with
// everything in it when the test ends.
#pragma once

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace kestrel::test {

class TempDir {
  public:
    explicit TempDir(const std::string &stem = "kestrel-host") {
        static std::atomic<int> counter{0};
        auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
        path_ = std::filesystem::temp_directory_path() /
                (stem + "-" + std::to_string(stamp) + "-" + std::to_string(counter++));
        std::filesystem::create_directories(path_);
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    const std::filesystem::path &Path() const { return path_; }
    // The directory as the host writes it: with a trailing separator.
    std::string WithSeparator() const { return (path_ / "").string(); }

    std::filesystem::path Write(const std::string &name, const std::string &content) const {
        std::filesystem::path file = path_ / name;
        std::ofstream(file, std::ios::binary) << content;
        return file;
    }

    static void WriteTo(const std::filesystem::path &file, const std::string &content = "") {
        std::ofstream(file, std::ios::binary) << content;
    }

  private:
    std::filesystem::path path_;
};

inline std::string ReadFile(const std::filesystem::path &file) {
    std::ifstream in(file, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

} // namespace kestrel::test
