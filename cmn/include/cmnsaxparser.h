/// @file
/// Parses XML held in memory with a SAX2 reader whose features are fixed.
#ifndef TARNIX_CMNSAXPARSER_H
#define TARNIX_CMNSAXPARSER_H

#include "cmnexport.h"

#include <xercesc/sax2/DefaultHandler.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>

#include <string>
#include <vector>

namespace tarnix_cmn_4_4
{

/// The reader neither validates nor processes namespaces, and it is closed to what a text from
/// outside could do with a document type declaration:
///
///   - No file and no host is ever read. An external DTD is passed over; a reference to an external
///     entity is a fatal error.
///   - What entities, parameter entities and default attributes make of the text is limited, in
///     content, in attributes and in the declarations alike: to a million characters and eight for
///     each byte of the document, where each replacement of an entity counts as 200 characters
///     more, and to 32 entities within each other. A document whose declarations could pass that,
///     whether it uses them all or not, gives a fatal error (without a line number) before anything
///     is replaced.
///   - Documents in UCS-4 or EBCDIC, which this class does not read ahead, are taken for the worst:
///     with more than some 10 KB and an entity declaration they meet that limit.
///
/// One object, with its handler, belongs to one thread at a time. It keeps Xerces-C initialised.
class TARNIX_CMN_API CCmnSaxParser
{
public:
    /// @{
    /// The handler may be null until setHandler. It belongs to the caller and outlives every parse.
    explicit CCmnSaxParser(xercesc::DefaultHandler* handler = nullptr);
    ~CCmnSaxParser();
    CCmnSaxParser(const CCmnSaxParser&) = delete;
    CCmnSaxParser& operator=(const CCmnSaxParser&) = delete;
    /// @}

    /// Belongs to the constructor. A further call leaks a reader and a use of Xerces-C, and takes
    /// the handler away. If Xerces-C fails here, there is no reader, and parse tries to make it.
    void init();

    /// The handler gets content and errors, and nothing else; null takes the one before away.
    void setHandler(xercesc::DefaultHandler* handler);

    /// Calls the handler from here. Malformed text is the handler's affair: it gets fatalError, and
    /// parse returns. What the handler raises goes to the caller, and so does what Xerces-C raises
    /// when memory is refused: xercesc::OutOfMemoryException, which is no std::exception. The
    /// object can be used again after each of them. The encoding is that of the text's declaration
    /// or byte order mark, or UTF-8.
    void parse(const std::string& text);

    /// The lines one behind the other, with nothing between them.
    void parse(const std::vector<std::string>& lines);

private:
    xercesc::DefaultHandler* m_Handler;
    xercesc::SAX2XMLReader* m_Reader;
};

} // namespace tarnix_cmn_4_4

#endif
