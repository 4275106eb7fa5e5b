// A directory for the files of a benchmark. While it exists, it is also the install directory that
// the registry names.
#ifndef TARNIX_BENCH_PLACE_H
#define TARNIX_BENCH_PLACE_H

#include "cmnsystemfiles.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

class Place
{
public:
    // `product`: another install directory for the registry to name.
    explicit Place(const std::string& product = "")
    {
        std::string name = (std::filesystem::temp_directory_path() / "tarnixXXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot create a temporary directory");
        }
        m_Path = name + "/";
        std::filesystem::create_directory(m_Path + "Logs");
        std::filesystem::create_directory(m_Path + "ConfigFiles");
        std::ofstream(file("registry")) << "[SOFTWARE\\Brenholt\\Tarnix]\n\"InstallDir64\"=\""
                                        << (product.empty() ? m_Path : product + "/") << "\"\n";
        tarnix_cmn_4_4::setRegistryFile(file("registry").c_str());
    }
    ~Place()
    {
        tarnix_cmn_4_4::setRegistryFile(nullptr);
        std::error_code ignored;
        std::filesystem::remove_all(m_Path, ignored);
    }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    std::string file(const std::string& name = "") const { return m_Path + name; }
    std::wstring wide() const { return {m_Path.begin(), m_Path.end()}; }
    std::string read(const std::string& name) const
    {
        std::ostringstream text;
        text << std::ifstream(file(name)).rdbuf();
        return text.str();
    }

private:
    std::string m_Path;
};

#endif
