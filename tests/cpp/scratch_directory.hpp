#pragma once
// A fresh directory under the system's temporary directory, removed with
// everything in it when the test ends.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace zerko::test_support {

class ScratchDirectory {
public:
    ScratchDirectory() {
        std::string pattern = (std::filesystem::temp_directory_path() / "zerko-test-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
        path_ = pattern;
    }
    ~ScratchDirectory() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    const std::string& path() const noexcept { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

    static void put(const std::string& path, const std::string& text) {
        std::ofstream(path, std::ios::binary) << text;
    }
    static std::string get(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

private:
    std::string path_;
};

}  // namespace zerko::test_support
