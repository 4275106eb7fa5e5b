// SPDX-License-Identifier: LicenseRef-Tarnix
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

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace tarnix_cmn_4_4
{

/// How much a document may cost. The defaults suit untrusted input; a program that knows its
/// documents may allow more, or less. A document that exceeds a limit is a fatal error for the
/// handler, and nothing else.
struct CCmnSaxLimits {
    /// @{
    /// To how many characters the declarations may expand: in all, and for each byte of the
    /// document. Each replacement of an entity counts as 200 more characters, each default
    /// attribute as 8, and each attribute that an element could have as a quarter at each use of
    /// the element. With the defaults 137 KB of `&alpha;` are refused. The steps of the check
    /// itself count too, so that declarations in an unfavourable order, for which it would take
    /// quadratic time, reach the limit.
    double expansion = 1e6;
    double expansionPerByte = 8;
    /// @}
    int nesting = 32; ///< of entities, at most 256. The reader takes 160 KiB for each level
    /// @{
    /// The bytes that the reader may allocate: in all, and for each byte of the document. What the
    /// handler keeps does not count. Nested elements take about 130 times their text, content
    /// models about 160 times.
    std::size_t memory = std::size_t{1} << 24;
    std::size_t memoryPerByte = 64;
    /// @}
    /// How many names of one kind (elements, entities, notations, attributes of an element) may
    /// have the same place in the reader's hash table. Each makes the search for the others longer.
    /// Names that are not chosen for that stay far below.
    std::size_t sameHash = 500;
    std::size_t attributes = 1000;   ///< in one tag
    std::size_t contentModel = 1000; ///< names and groups in one
};

/// The reader does not validate and does not process namespaces. Untrusted input cannot use a
/// document type declaration for an attack:
///
/// - The parser never reads a file or connects to a host. An external DTD is ignored. A reference
///   to an external entity is a fatal error.
/// - A reference to an entity that is not declared in the document itself is a fatal error. What an
///   external DTD would add in other ways, such as default attributes, is missing.
/// - Time and memory stay in proportion to the document, as CCmnSaxLimits says.
/// - Each declaration is checked before anything that it declares is expanded, and counts at least
///   once, even if the document does not use it. For a document that could exceed a limit, the
///   result is a fatal error without a line number.
/// - A document in UCS-4 or EBCDIC cannot be checked in advance, so the worst case is assumed: it
///   exceeds the limit if it has an entity declaration and more than about 10 KB, or more than
///   256 KiB.
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

    /// For the following parses. Returns false and changes nothing during a parse, and if there is
    /// no reader.
    bool setLimits(const CCmnSaxLimits& limits);
    /// The limits of the next parse.
    CCmnSaxLimits getLimits() const;

    /// Parses the text and calls the handler on the calling thread. For malformed text the handler
    /// receives fatalError, and parse returns. Exceptions of the handler reach the caller, and so
    /// does xercesc::OutOfMemoryException, which Xerces-C throws when an allocation fails and which
    /// is not a std::exception. The parser can be used again after any of them. The encoding is
    /// that of the XML declaration or of the byte order mark, otherwise UTF-8.
    void parse(const std::string& text);

    /// Parses the concatenated lines, with nothing between them.
    void parse(const std::vector<std::string>& lines);

    /// Parses a document that arrives in pieces of any size, also ones that end inside a character.
    /// `next` returns the next piece, and an empty text at the end of the document; it is called on
    /// the same thread whenever the reader needs more. It may throw, with which the parse ends. The
    /// handler gets what is complete while the rest is still to come, but nothing before the first
    /// 1,024 bytes. The document is not kept in memory, with two exceptions: all of it is read
    /// first if it has a document type declaration, or is in an encoding other than UTF-8,
    /// US-ASCII, ISO 8859 and the Windows code pages.
    void parsePieces(const std::function<std::string()>& next);

private:
    xercesc::DefaultHandler* m_Handler;
    xercesc::SAX2XMLReader* m_Reader;
};

} // namespace tarnix_cmn_4_4

#endif
