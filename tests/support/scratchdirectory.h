// SPDX-License-Identifier: LicenseRef-Tarnix
// A temporary directory that a test, a fuzzer or a benchmark owns, and the files in it.
#ifndef TARNIX_SUPPORT_SCRATCHDIRECTORY_H
#define TARNIX_SUPPORT_SCRATCHDIRECTORY_H

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

class ScratchDirectory
{
public:
    ScratchDirectory()
    {
        if (::mkdtemp(m_Path.data()) == nullptr)
            throw std::system_error(errno, std::generic_category(), "cannot make " + m_Path);
        m_Path += '/';
    }
    ~ScratchDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_Path, ignored);
    }
    ScratchDirectory(ScratchDirectory&&) = delete; // and so is copying

    // The path of the directory ends in a slash, as the library's directories do.
    std::string path(const std::string& name = "") const { return m_Path + name; }
    std::wstring widePath(const std::string& name = "") const
    {
        return std::filesystem::path(path(name)).wstring();
    }
    // The number of files and directories in one of its directories.
    long entries(const std::string& name = "") const
    {
        return std::distance(std::filesystem::directory_iterator(path(name)), {});
    }

    void makeDirectory(const std::string& name) const
    {
        std::filesystem::create_directories(path(name));
    }
    void write(const std::string& name, const std::string& text) const
    {
        if (!(std::ofstream(path(name), std::ios::binary) << text << std::flush))
            throw std::runtime_error("cannot write " + path(name));
    }
    // Empty if there is no such file, or if it is a directory.
    std::string read(const std::string& name) const
    {
        std::ostringstream text;
        text << std::ifstream(path(name), std::ios::binary).rdbuf();
        return text.str();
    }

    std::vector<std::string> readLines(const std::string& name) const
    {
        std::ifstream file(path(name), std::ios::binary);
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);)
            lines.push_back(line);
        return lines;
    }

private:
    std::string m_Path = (std::filesystem::temp_directory_path() / "tarnixXXXXXX").string();
};

#endif
