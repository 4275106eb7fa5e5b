// SPDX-License-Identifier: LicenseRef-Tarnix
// CCmnSaxParseHandler, and the initialisation of Xerces-C for all its users.
#include "cmnsaxhandler.h"

#include "cmnstringtool.h"

#include <unicode/utf16.h>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLString.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <memory>
#include <mutex>
#include <new>

namespace tarnix_cmn_4_4
{
namespace
{

// Handlers may be static objects. The mutex works before and after main, because it is initialised
// at compile time and its destructor does nothing.
std::mutex g_libraryMutex;

// A stored error, as it is thrown. Unwinding may destroy the handler and the parser before the
// caller looks at the exception, and without a user Xerces-C frees the memory of the texts. So the
// exception is a user too: as the first base, CCmnSaxLibrary is destroyed last.
class ThrownError : private CCmnSaxLibrary, public xercesc::SAXParseException
{
public:
    // NOLINTNEXTLINE(bugprone-throw-keyword-missing): a base, not a forgotten throw
    explicit ThrownError(const SAXParseException& problem) : SAXParseException(problem) {}
};

struct TranscodedDeleter {
    void operator()(char* text) const { xercesc::XMLString::release(&text); }
};
using Transcoded = std::unique_ptr<char, TranscodedDeleter>;

Transcoded transcode(const XMLCh* text)
{
    return Transcoded(xercesc::XMLString::transcode(text));
}

void append(std::string& target, const XMLCh* text)
{
    if (const Transcoded narrow = transcode(text)) {
        target += narrow.get();
    }
}

xercesc::SAXParseException noProblem()
{
    return {nullptr, nullptr, nullptr, 0, 0};
}

} // namespace

void CCmnSaxLibrary::beginUse()
{
    const std::lock_guard<std::mutex> guard(g_libraryMutex);
    xercesc::XMLPlatformUtils::Initialize(xercesc::XMLUni::fgXercescDefaultLocale, nullptr);
}

void CCmnSaxLibrary::endUse()
{
    const std::lock_guard<std::mutex> guard(g_libraryMutex);
    xercesc::XMLPlatformUtils::Terminate();
}

CCmnSaxParseHandler::CCmnSaxParseHandler() : m_LastError(noProblem()), m_HasLastError(false) {}

CCmnSaxParseHandler::~CCmnSaxParseHandler() = default;

std::string CCmnSaxParseHandler::toString(const XMLCh* const text) const
{
    const Transcoded narrow = transcode(text);
    return narrow ? std::string(narrow.get()) : std::string();
}

std::wstring CCmnSaxParseHandler::toWString(const XMLCh* const text) const
{
    return CCmnStringTool::str2wstr(toString(text));
}

void CCmnSaxParseHandler::characters(const XMLCh* const text, const XMLSize_t length)
{
    // The reader splits a long text anywhere, also within a surrogate pair. A short text is never
    // split and not measured, because that would take a twentieth of the time of a parse.
    constexpr XMLSize_t minSplitSize = 4096;
    if (length < minSplitSize && m_Lead == 0) {
        append(m_Text, text);
        return;
    }
    std::u16string whole(m_Lead != 0 ? 1 : 0, m_Lead);
    whole += text;
    m_Lead = !whole.empty() && U16_IS_LEAD(whole.back()) ? whole.back() : XMLCh{0};
    if (m_Lead != 0) {
        whole.pop_back();
    }
    append(m_Text, whole.c_str());
}

void CCmnSaxParseHandler::startElement(const XMLCh* const /*uri*/, const XMLCh* const /*localname*/,
                                       const XMLCh* const /*qname*/,
                                       const xercesc::Attributes& /*attributes*/)
{
}

void CCmnSaxParseHandler::endElement(const XMLCh* const /*uri*/, const XMLCh* const /*localname*/,
                                     const XMLCh* const /*qname*/)
{
}

void CCmnSaxParseHandler::warning(const xercesc::SAXParseException& problem)
{
    store(problem);
}

void CCmnSaxParseHandler::error(const xercesc::SAXParseException& problem)
{
    store(problem);
}

void CCmnSaxParseHandler::fatalError(const xercesc::SAXParseException& problem)
{
    store(problem);
}

std::string CCmnSaxParseHandler::getLastErrorText() const
{
    if (!m_HasLastError) {
        return {};
    }
    std::string text;
    if (m_LastError.getLineNumber() != 0) {
        text = "line " + std::to_string(m_LastError.getLineNumber()) + ", column " +
               std::to_string(m_LastError.getColumnNumber());
    }
    if (const XMLCh* const message = m_LastError.getMessage()) {
        text += (text.empty() ? "" : ": ") + CCmnStringTool::ustr2str(icu::UnicodeString(message));
    }
    return text;
}

void CCmnSaxParseHandler::throwLastError()
{
    if (m_HasLastError && m_LastError.getMessage() != nullptr) {
        throw ThrownError(m_LastError);
    }
}

void CCmnSaxParseHandler::store(const xercesc::SAXParseException& problem)
{
    m_HasLastError = true;
    if (&problem == &m_LastError) {
        return;
    }
    // Destroyed and constructed again: if allocation fails, an assignment keeps pointers to texts
    // that it has freed.
    m_LastError.~SAXParseException();
    try {
        new (&m_LastError) xercesc::SAXParseException(problem);
    } catch (...) {
        new (&m_LastError) xercesc::SAXParseException(noProblem());
        throw;
    }
}

} // namespace tarnix_cmn_4_4
