// SPDX-License-Identifier: LicenseRef-Tarnix
// Which files ACE_Registry_ImpExp cannot import without harm, and which lines it does not read.
#ifndef TARNIX_PLATFORM_IMPORTCHECK_H
#define TARNIX_PLATFORM_IMPORTCHECK_H

#include "importcost.h"
#include "importline.h"
#include "importnames.h"
#include "platform_settings.h"

#include <string>

namespace tarnix_platform
{

// Checks a whole file, and prepares its text for ACE.
class ImportCheck
{
public:
    // `names` is null for a file that a store has written: its names are right. With `fixes` false,
    // lines that ACE misreads are not changed. All must outlive this object.
    ImportCheck(std::string& text, TxSectionNames* names, bool fixes, TxImportReport& report)
        : m_Text(text), m_Names(names), m_Fixes(fixes), m_Report(report)
    {
    }

    // False if the file is refused; the last problem then says why. The text keeps its length.
    bool accepts();

    // Adds the closing quotes that are missing in an accepted file, and the last newline.
    void complete();

private:
    bool acceptsLine(char* begin, char* end);
    void addQuote(const ImportLine& line, const char* end);
    void cut(const ImportLine& line, char* begin);
    bool hideZeros(char* begin, char* end);
    bool openSection(const ImportLine& line, char* name);
    const char* checkValue(const ImportLine& line);
    bool enterName(const ImportLine& line);
    bool countLevels(const ImportLine& line);
    void respell(char* name, const char* end, const std::string& path);
    bool refuse(const char* reason);

    std::string& m_Text;
    TxSectionNames* const m_Names;
    const bool m_Fixes;
    TxImportReport& m_Report;
    ImportCost m_Cost;
    std::vector<ImportNames> m_Values;        // of each section, by its number
    ImportCost::Section* m_Section = nullptr; // null before the first one
    std::vector<const char*> m_Unclosed;      // positions in the text at which a quote is missing
    std::size_t m_Line{};
    std::ptrdiff_t m_AllLevels{};
    bool m_HasZeros{};
    std::ptrdiff_t m_Zeros{};
};

} // namespace tarnix_platform

#endif
