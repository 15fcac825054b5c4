// A fresh folder per test, removed with everything in it afterwards.
#pragma once

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>

class TempDir {
public:
    TempDir() {
        std::random_device device;
        for (int attempt = 0; attempt < 100 && path_.empty(); ++attempt) {
            char name[32];
            std::snprintf(name, sizeof(name), "quelmksp-test-%08x", device());
            std::filesystem::path candidate = std::filesystem::temp_directory_path() / name;
            if (std::filesystem::create_directory(candidate)) path_ = candidate;
        }
        if (path_.empty()) throw std::runtime_error("no temporary folder could be made");
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::string operator/(const std::string& name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

inline void WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

inline std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}
