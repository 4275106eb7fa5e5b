// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// The base class of handlers for CCmnSaxParser: it collects the character data and stores the last
/// problem instead of throwing it. For an example see cmnsaxparser.h.
#ifndef TARNIX_CMNSAXHANDLER_H
#define TARNIX_CMNSAXHANDLER_H

#include "cmnexport.h"

#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>

#include <string>

namespace tarnix_cmn_4_4
{

/// Keeps Xerces-C initialised during its lifetime. Create and destroy every object of Xerces-C
/// while such an object, or a parser, exists.
///
/// Any number of these objects may exist, on any threads. Xerces-C takes no lock in Initialize and
/// Terminate; this library calls them under a lock of its own. That lock does not cover calls by
/// the program itself: make them before other threads start.
class TARNIX_CMN_API CCmnSaxLibrary
{
public:
    CCmnSaxLibrary() { beginUse(); }
    /// @{
    /// Each object counts as a use, copies too.
    CCmnSaxLibrary(const CCmnSaxLibrary&) { beginUse(); }
    CCmnSaxLibrary& operator=(const CCmnSaxLibrary&) = default;
    ~CCmnSaxLibrary() { endUse(); }
    /// @}

    /// @{
    /// One Initialize and one Terminate of Xerces-C, for code that cannot hold an object.
    static void beginUse();
    static void endUse();
    /// @}
};

/// Derive from it, override startElement and endElement, and use m_Text. A handler may be created
/// before the first parser and destroyed after the last. Only one thread at a time may use it.
///
/// The text and the stored problem are not reset between two parses: use a new handler for each.
class TARNIX_CMN_API CCmnSaxParseHandler : public xercesc::DefaultHandler, private CCmnSaxLibrary
{
public:
    CCmnSaxParseHandler();
    ~CCmnSaxParseHandler() override;

    /// @{
    /// Converts the text to the local code page of Xerces-C, which depends on the locale.
    /// Characters not representable in that code page are replaced. toWString then converts the
    /// result with CCmnStringTool::str2wstr. If a conversion fails, the result is empty.
    std::string toString(const XMLCh* const text) const;
    std::wstring toWString(const XMLCh* const text) const;
    /// @}

    /// Appends the result of toString to m_Text. The text ends at its terminator; `length` is used
    /// only to find out whether the reader may have split a long text inside a character. The first
    /// half of such a character is kept and converted together with the second.
    void characters(const XMLCh* const text, const XMLSize_t length) override;

    /// @{
    /// Do nothing; for derived classes.
    void startElement(const XMLCh* const uri, const XMLCh* const localname,
                      const XMLCh* const qname, const xercesc::Attributes& attributes) override;
    void endElement(const XMLCh* const uri, const XMLCh* const localname,
                    const XMLCh* const qname) override;
    /// @}

    /// @{
    /// Store the problem in place of the one before, even if that was more severe. Throw nothing.
    void warning(const xercesc::SAXParseException& problem) override;
    void error(const xercesc::SAXParseException& problem) override;
    void fatalError(const xercesc::SAXParseException& problem) override;
    /// @}

    /// True if a problem has been reported since the handler was created.
    bool hasLastError() const { return m_HasLastError; }

    /// The stored problem; if there is none, an exception whose texts are null. A copy that
    /// outlives this handler needs a CCmnSaxLibrary that lives at least as long as the copy.
    xercesc::SAXParseException& getLastError() { return m_LastError; }

    /// The stored problem as one text in UTF-8, whatever the locale, for example
    /// "line 3, column 7: entity 'uuml' not found". Without the position if the problem has none;
    /// empty if there is no problem.
    std::string getLastErrorText() const;

    /// Throws the stored problem as a SAXParseException, on every call. Returns if there is none or
    /// it has no message. The exception is valid even after handler and parser are destroyed.
    void throwLastError();

protected:
    /// @{
    /// What getLastError and hasLastError return.
    xercesc::SAXParseException m_LastError;
    bool m_HasLastError;
    /// @}
    std::string m_Text; ///< all character data so far; only a derived class clears it

private:
    void store(const xercesc::SAXParseException& problem);

    XMLCh m_Lead = 0; // the first half of a character that the reader has split
};

} // namespace tarnix_cmn_4_4

#endif
