/// @file
/// Parses XML in memory with a SAX2 reader whose features are fixed.
///
/// @code
/// #include "cmnsaxhandler.h"
/// #include "cmnsaxparser.h"
/// #include <iostream>
///
/// struct Handler : tarnix_cmn_4_4::CCmnSaxParseHandler {
///     void endElement(const XMLCh*, const XMLCh*, const XMLCh* name) override
///     {
///         std::cout << toString(name) << '=' << m_Text << '\n'; // prints port=80
///         m_Text.clear();
///     }
/// };
/// Handler handler;
/// tarnix_cmn_4_4::CCmnSaxParser parser(&handler);
/// parser.parse("<port>80</port>");
/// return handler.hasLastError() ? 1 : 0;
/// @endcode
#ifndef TARNIX_CMNSAXPARSER_H
#define TARNIX_CMNSAXPARSER_H

#include "cmnexport.h"

#include <xercesc/sax2/DefaultHandler.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>

#include <string>
#include <vector>

namespace tarnix_cmn_4_4
{

/// The reader does not validate and does not process namespaces. Untrusted input cannot use a
/// document type declaration for an attack:
///
/// - The parser never reads a file or connects to a host. An external DTD is ignored. A reference
///   to an external entity is a fatal error.
/// - The expansion of entities, parameter entities and default attributes is limited, in content as
///   in attributes and declarations:
///   - to a million characters plus eight for each byte of the document, where each replacement of
///     an entity counts as 200 more characters
///   - to a nesting of 32 entities
/// - Each declaration is checked before anything that it declares is expanded, and counts at least
///   once, even if the document does not use it. For a document that could exceed a limit, the
///   result is a fatal error without a line number.
/// - A document in UCS-4 or EBCDIC cannot be checked in advance, so the worst case is assumed: it
///   exceeds the limit if it has an entity declaration and more than about 10 KB.
///
/// Only one thread at a time may use a parser and its handler. A parser keeps Xerces-C initialised.
class TARNIX_CMN_API CCmnSaxParser
{
public:
    /// @{
    /// The handler belongs to the caller and must live during every parse. It may be null until
    /// setHandler is called.
    explicit CCmnSaxParser(xercesc::DefaultHandler* handler = nullptr);
    ~CCmnSaxParser();
    CCmnSaxParser(const CCmnSaxParser&) = delete;
    CCmnSaxParser& operator=(const CCmnSaxParser&) = delete;
    /// @}

    /// Called by the constructor, and not for users: another call leaks a reader and a use of
    /// Xerces-C, and removes the handler. If Xerces-C fails here, there is no reader, and parse
    /// tries again to create it.
    void init();

    /// The handler receives content and errors, and nothing else. Null removes the handler.
    void setHandler(xercesc::DefaultHandler* handler);

    /// Parses the text and calls the handler on the calling thread. For malformed text the handler
    /// receives fatalError, and parse returns. Exceptions of the handler reach the caller, and so
    /// does xercesc::OutOfMemoryException, which Xerces-C throws when an allocation fails and which
    /// is not a std::exception. The parser can be used again after any of them. The encoding is
    /// that of the XML declaration or of the byte order mark, otherwise UTF-8.
    void parse(const std::string& text);

    /// Parses the concatenated lines, with nothing between them.
    void parse(const std::vector<std::string>& lines);

private:
    xercesc::DefaultHandler* m_Handler;
    xercesc::SAX2XMLReader* m_Reader;
};

} // namespace tarnix_cmn_4_4

#endif
