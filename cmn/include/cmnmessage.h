/// @file
/// Messages: what happened, as an id with typed arguments that is not yet text in any language, and
/// the text in which a message leaves the component that raised it.
#ifndef TARNIX_CMNMESSAGE_H
#define TARNIX_CMNMESSAGE_H

#include "cmnexport.h"
#include "cmnrefcount.h"
#include "cmntypes.h"

#include <unicode/fmtable.h>

#include <cstdint>
#include <string>

/// The values are those of the components that raise messages. The library tests none: all 32 bits
/// pass through unchanged.
enum tarnix_eseverity : std::int32_t {};

namespace tarnix_cmn_4_4
{

/// Points to a serialised message and owns nothing.
struct SCmnMessageInfo {
    const char* text = nullptr; ///< terminated

    /// Bytes without the terminator, the low 32 bits of their number. For the record of
    /// `serialize`; whoever reads a record goes by the terminator.
    std::uint32_t length = 0;
};

/// A message starts with a reference count of 0. It takes no lock: one thread at a time uses it.
class TARNIX_CMN_API CCmnMessage : public CCmnRefCount
{
public:
    /// The message as text. Record and text belong to the message; the text is valid until the next
    /// call, an assignment to the message or its end.
    virtual const SCmnMessageInfo* serialize() = 0;

    /// Takes id, severity and arguments from the record's text. Neither pointer may be null. What
    /// the text does not tell stays as it was; there is no failure.
    virtual void deserialize(const SCmnMessageInfo* info) = 0;

    /// A number of the client's; this library gives it no meaning.
    virtual tarnix_eseverity getSeverity() const { return m_Severity; }

    /// @{
    /// The place in the source that raised the message; 0 and empty for a message made from a
    /// record, because the text does not carry them.
    virtual int getLine() const { return m_Line; }
    virtual std::string getFile() const { return m_File; }
    /// @}

    /// The key of the message's pattern in every catalog. An id with white space in it, and an
    /// empty one, do not survive serialising.
    virtual std::string getMessageId() const { return m_MessageId; }

    /// The pattern with the arguments in it. Never fails: a bad pattern gives what could be
    /// formatted, or itself.
    virtual tstr formatMessage(tstr pattern) = 0;

protected:
    CCmnMessage() = default;

    /// Copies both texts, which must not be null.
    CCmnMessage(const char* msgId, tarnix_eseverity severity, const char* file, int line);

    /// @{
    /// What the accessors give.
    std::string m_MessageId;
    tarnix_eseverity m_Severity{};
    std::string m_File;
    int m_Line = 0;
    /// @}
};

/// A message whose arguments are ICU values and whose patterns are those of ICU's MessageFormat.
///
/// Serialised it is lines of text that end in "\n", with a tab before each `<ARGVALUE`:
///
/// @verbatim
///   <SERIALIZED_MESSAGE MSGID=disk.full SEVERITY=2>
///       <ARGVALUE INDEX=0 TYPE=3>/var</ARGVALUE>
///       <ARGVALUE INDEX=1 TYPE=2>97</ARGVALUE>
///   </SERIALIZED_MESSAGE>
/// @endverbatim
///
/// It is not XML: nothing is quoted or escaped. TYPE is the value of Formattable::getType.
///
/// | TYPE | written as | read as |
/// |---|---|---|
/// | 0, 1 | date or double: "%g", six digits | double |
/// | 2 | 32-bit integer: "%d" | 32-bit integer |
/// | 3 | UTF-8, up to a NUL; empty if it is not Unicode | text up to "<"; empty if not UTF-8 |
/// | else | no value (64-bit integer, array, object) | nothing: those behind it move up |
///
/// A message without arguments is the empty text, and its id and severity are lost. The header line
/// is cut at 1023 bytes: with a severity of d digits (the sign counts) an id of more than 985 - d
/// bytes spoils the text. Both directions take time in proportion to the text, whatever it holds.
class TARNIX_CMN_API CCmnIcuMessage : public CCmnMessage
{
public:
    /// Copies the `count` arguments and both texts, which must not be null.
    CCmnIcuMessage(const char* msgId, const icu::Formattable* args, int count,
                   tarnix_eseverity severity, const char* file, int line);

    /// An empty message of severity 0, on which `deserialize` is run.
    explicit CCmnIcuMessage(const SCmnMessageInfo* info);

    /// @{
    /// Copies share nothing but take over the reference count, as CCmnRefCount tells.
    CCmnIcuMessage(const CCmnIcuMessage& other);
    CCmnIcuMessage& operator=(const CCmnIcuMessage& other);
    ~CCmnIcuMessage() override;
    /// @}

    /// Writes the text anew at every call; the record's address does not change.
    const SCmnMessageInfo* serialize() override;

    /// Text in front of the header and behind the last argument is skipped. Without
    /// "<SERIALIZED_MESSAGE" nothing changes. A header without an id leaves the id, one without a
    /// severity the severity as it was; in both cases the arguments are replaced. An opening tag
    /// without a readable TYPE adds no argument, and one without a ">" ends the text. A value ends
    /// at the next "<", and the 11 bytes from there on are taken for the closing tag.
    void deserialize(const SCmnMessageInfo* info) override;

    /// Patterns are those of MessageFormat, also without arguments, so apostrophes and braces are
    /// always ICU's. Numbers and dates are written as in ICU's default locale, whatever the
    /// language of the pattern. After a failure the result is what had been formatted by then, or
    /// the unchanged pattern if that is nothing.
    tstr formatMessage(tstr pattern) override;

private:
    void ownRecord();

    icu::Formattable m_Arguments; ///< an array; of no type at all until it has been set
    SCmnMessageInfo m_Info;
    std::string m_Serialized;
};

} // namespace tarnix_cmn_4_4

#endif
