// A temporary directory that a test owns, a registry that points into it, and other helpers.
#ifndef TARNIX_TESTS_SCRATCH_H
#define TARNIX_TESTS_SCRATCH_H

#include "cmnsystemfiles.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

class Scratch
{
public:
    Scratch()
    {
        std::string name = (std::filesystem::temp_directory_path() / "tarnixXXXXXX").string();
        if (!mkdtemp(name.data()))
            throw std::runtime_error("no temporary directory");
        m_Path = name + "/";
    }
    ~Scratch()
    {
        tarnix_cmn_4_4::setRegistryFile(nullptr);
        std::filesystem::remove_all(m_Path);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    // The directory ends in a slash, as the library's directories do.
    std::string path(const std::string& name = "") const { return m_Path + name; }
    std::wstring wide(const std::string& name = "") const
    {
        return std::filesystem::path(path(name)).wstring();
    }

    void makeDirectory(const std::string& name) const
    {
        std::filesystem::create_directories(path(name));
    }
    void write(const std::string& name, const std::string& text) const
    {
        std::ofstream(path(name), std::ios::binary) << text;
    }
    std::string read(const std::string& name) const
    {
        std::ostringstream text; // which takes a directory for an empty file
        text << std::ifstream(path(name), std::ios::binary).rdbuf();
        return text.str();
    }

    void setRegistry(const std::string& installDir, const std::string& programFiles) const
    {
        write("registry.conf",
              "[SOFTWARE\\Brenholt\\Tarnix]\n\"InstallDir64\"=\"" + installDir +
                  "\"\n[SOFTWARE\\Microsoft\\Windows\\CurrentVersion]\n\"ProgramFilesDir\"=\"" +
                  programFiles + "\"\n");
        tarnix_cmn_4_4::setRegistryFile(path("registry.conf").c_str());
    }

private:
    std::string m_Path;
};

inline std::string repeated(const std::string& text, int times)
{
    std::string all;
    while (times-- > 0)
        all += text;
    return all;
}

// work(0), work(1) and so on, each on a thread of its own, to their ends.
template <typename Work>
void onThreads(int count, const Work& work)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back(work, i);
    for (std::thread& thread : threads)
        thread.join();
}

#endif
