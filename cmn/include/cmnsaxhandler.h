/// @file
/// The base of a caller's handler for CCmnSaxParser: it gathers the character data and stores the
/// last problem in place of raising it.
#ifndef TARNIX_CMNSAXHANDLER_H
#define TARNIX_CMNSAXHANDLER_H

#include "cmnexport.h"

#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>

#include <string>

namespace tarnix_cmn_4_4
{

/// Keeps Xerces-C initialised for as long as it lives. Whatever belongs to Xerces-C has to be made
/// and destroyed while some such object, or a parser, lives.
///
/// Any number of these may come and go on any threads: the library's calls of Initialize and
/// Terminate, on which Xerces-C takes no lock, exclude each other. They do not know of such calls
/// that the process makes itself; it makes them before its other threads start.
class TARNIX_CMN_API CCmnSaxLibrary
{
public:
    CCmnSaxLibrary() { beginUse(); }
    /// @{
    /// Each object, a copy too, is a use of its own.
    CCmnSaxLibrary(const CCmnSaxLibrary&) { beginUse(); }
    CCmnSaxLibrary& operator=(const CCmnSaxLibrary&) = default;
    ~CCmnSaxLibrary() { endUse(); }
    /// @}

    /// @{
    /// One Initialize and one Terminate of Xerces-C, for those who must pair them by hand.
    static void beginUse();
    static void endUse();
    /// @}
};

/// A handler may be made before the first parser and outlive the last. One object belongs to one
/// thread at a time. Derive from it, override startElement and endElement, and work on m_Text.
///
/// Nothing resets the text and the stored problem between two parses; a fresh result takes a fresh
/// handler.
class TARNIX_CMN_API CCmnSaxParseHandler : public xercesc::DefaultHandler, private CCmnSaxLibrary
{
public:
    CCmnSaxParseHandler();
    ~CCmnSaxParseHandler() override;

    /// @{
    /// The text in the local code page of Xerces-C, which it takes from the locale; what that page
    /// does not have is replaced. toWString goes on from there with CCmnStringTool::str2wstr, and
    /// is empty if that fails. A text that cannot be transcoded gives the empty string.
    std::string toString(const XMLCh* const text) const;
    std::wstring toWString(const XMLCh* const text) const;
    /// @}

    /// Appends the terminated text, as toString gives it, to m_Text. The text ends at its
    /// terminator whatever the length, which only tells whether the reader may have cut a long text
    /// within a character; the second half then goes with the first.
    void characters(const XMLCh* const text, const XMLSize_t length) override;

    /// @{
    /// Do nothing.
    void startElement(const XMLCh* const uri, const XMLCh* const localname,
                      const XMLCh* const qname, const xercesc::Attributes& attributes) override;
    void endElement(const XMLCh* const uri, const XMLCh* const localname,
                    const XMLCh* const qname) override;
    /// @}

    /// @{
    /// All three store the problem over the one before, whatever its severity, and raise nothing.
    void warning(const xercesc::SAXParseException& problem) override;
    void error(const xercesc::SAXParseException& problem) override;
    void fatalError(const xercesc::SAXParseException& problem) override;
    /// @}

    /// Whether a problem was reported since the handler was made.
    bool hasLastError() const { return m_HasLastError; }

    /// The stored problem itself; without one, an exception whose texts are null. A copy that is to
    /// outlive this handler needs a CCmnSaxLibrary beside it.
    xercesc::SAXParseException& getLastError() { return m_LastError; }

    /// Raises the stored problem, to be caught as SAXParseException or SAXException, each time that
    /// it is called. Returns if there is none or it has no message. What is raised may be looked at
    /// when handler and parser are gone.
    void throwLastError();

protected:
    /// @{
    /// What getLastError and hasLastError give.
    xercesc::SAXParseException m_LastError;
    bool m_HasLastError;
    /// @}
    std::string m_Text; ///< all character data so far; only a derived class empties it

private:
    void store(const xercesc::SAXParseException& problem);

    XMLCh m_Lead = 0; // the first half of a character that the reader has cut
};

} // namespace tarnix_cmn_4_4

#endif
