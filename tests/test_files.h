// A temporary directory for one test, removed with everything in it when the
// test is over.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

class TempDir {
public:
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "ozmtest.XXXXXX").string();
        if (mkdtemp(pattern.data()))
            m_dir = pattern;
    }
    ~TempDir() {
        std::error_code ec;
        if (!m_dir.empty())
            std::filesystem::remove_all(m_dir, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    bool Ok() const { return !m_dir.empty(); }
    const std::string& Dir() const { return m_dir; }
    std::string Path(const std::string& name) const { return m_dir + "/" + name; }
    // Writes bytes to the named file and returns its path.
    std::string Write(const std::string& name, const std::string& bytes) const {
        std::ofstream(Path(name), std::ios::binary) << bytes;
        return Path(name);
    }
    std::string Read(const std::string& name) const {
        std::ifstream in(Path(name), std::ios::binary);
        std::stringstream ss;
        ss << in.rdbuf();
        return ss.str();
    }

private:
    std::string m_dir;
};
