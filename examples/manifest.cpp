// SPDX-License-Identifier: LicenseRef-Tarnix
// Compares the files of a directory with a manifest in XML, which lists them with their MD5.
#include "cmnmsgdgst5.h"
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"

#include <xercesc/sax2/Attributes.hpp>

#include <clocale>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <string>

using namespace tarnix_cmn_4_4;

namespace
{

constexpr char kUsage[] =
    "usage: manifest DIRECTORY/ <manifest.xml\n"
    "Standard input lists the files that the directory should hold, digests in lower case:\n"
    "  <files><file name='a.txt' md5='900150983cd24fb0d6963f7d28e17f72'/></files>\n"
    "exit status: 0 all files as listed, 1 a file is missing or differs, 2 unreadable list\n";

std::string readAll(std::istream& in)
{
    return {std::istreambuf_iterator<char>(in), {}};
}

// Collects the digests by file name.
class ManifestHandler : public CCmnSaxParseHandler
{
public:
    using Files = std::map<std::string, std::string>;
    const Files& files() const { return m_Files; }

    void startElement(const XMLCh* const /*uri*/, const XMLCh* const /*localname*/,
                      const XMLCh* const qname, const xercesc::Attributes& attributes) override
    {
        if (toString(qname) == "file") {
            m_Files[value(attributes, "name")] = value(attributes, "md5");
        }
    }

private:
    std::string value(const xercesc::Attributes& attributes, const std::string& name) const
    {
        for (XMLSize_t i = 0; i < attributes.getLength(); ++i) {
            if (toString(attributes.getQName(i)) == name) {
                return toString(attributes.getValue(i));
            }
        }
        return "";
    }

    Files m_Files;
};

std::string digestOf(std::istream& in)
{
    CCmnMessageDigest5 digest;
    char piece[4096];
    while (in.read(piece, sizeof piece) || in.gcount() > 0) {
        digest.Update(reinterpret_cast<const unsigned char*>(piece),
                      static_cast<std::uint32_t>(in.gcount()));
    }
    digest.Finalize();
    return digest.GetAnsiMessageDigest();
}

std::string verdict(const std::string& path, const std::string& wanted)
{
    std::error_code ignored;
    std::ifstream file(path, std::ios::binary);
    if (!file || !std::filesystem::is_regular_file(path, ignored)) {
        return "missing";
    }
    const std::string found = digestOf(file);
    if (file.bad()) {
        return "not readable";
    }
    return found == wanted ? "as listed" : "changed";
}

} // namespace

int main(int argc, char** argv)
{
    std::setlocale(LC_CTYPE, ""); // the encoding of the file names
    if (argc != 2) {
        std::cerr << kUsage;
        return 2;
    }
    ManifestHandler handler;
    CCmnSaxParser(&handler).parse(readAll(std::cin));
    if (handler.hasLastError()) {
        std::cerr << "manifest: line " << handler.getLastError().getLineNumber() << ": "
                  << handler.toString(handler.getLastError().getMessage()) << '\n';
        return 2;
    }
    int status = 0;
    for (const auto& [name, wanted] : handler.files()) {
        const std::string found = verdict(argv[1] + name, wanted);
        std::cout << name << ": " << found << '\n';
        status = found == "as listed" ? status : 1;
    }
    return status;
}
