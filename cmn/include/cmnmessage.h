// SPDX-License-Identifier: LicenseRef-Tarnix
/// @file
/// Messages: an id with typed arguments, which becomes text in a language only when it is shown.
/// To send a message to another component or process, serialise it.
///
/// @code
/// #include "cmnmessage.h"
/// #include "cmnstringtool.h"
/// #include <iostream>
///
/// using namespace tarnix_cmn_4_4;
/// const icu::Formattable arguments[] = {icu::Formattable(u"/var"), icu::Formattable(97)};
/// CCmnIcuMessage sent("DISK_FULL", arguments, 2, tarnix_eseverity{2}, __FILE__, __LINE__);
/// CCmnIcuMessage received(sent.serialize());
/// const tstr text = received.formatMessage(L"{0} is full to {1}%"); // the pattern of a catalog
/// std::cout << CCmnStringTool::tstr2str(text) << '\n'; // prints /var is full to 97%
/// @endcode
#ifndef TARNIX_CMNMESSAGE_H
#define TARNIX_CMNMESSAGE_H

#include "cmnexport.h"
#include "cmnrefcount.h"
#include "cmntypes.h"

#include <unicode/fmtable.h>

#include <cstdint>
#include <string>

/// The values are defined by the components that create messages. The library does not check them:
/// all 32 bits pass through unchanged.
enum tarnix_eseverity : std::int32_t {};

namespace tarnix_cmn_4_4
{

/// Points to a serialised message and owns nothing.
struct SCmnMessageInfo {
    const char* text = nullptr; ///< terminated

    /// Size of the text in bytes without the terminator; only the low 32 bits of a larger number.
    /// Set by `serialize`. Readers of a record use the terminator and not this field.
    std::uint32_t length{};
};

/// A message starts with a reference count of 0. It takes no lock: only one thread at a time may
/// use it.
class TARNIX_CMN_API CCmnMessage : public CCmnRefCount
{
public:
    /// The message as text. Record and text belong to the message. The text is valid until the next
    /// call of serialize, until the message is assigned to, or until it is destroyed.
    virtual const SCmnMessageInfo* serialize() = 0;

    /// Sets id, severity and arguments from the text of the record. Neither `info` nor its text may
    /// be null. What the text does not contain stays unchanged. This never fails.
    virtual void deserialize(const SCmnMessageInfo* info) = 0;

    /// The number that the creator of the message chose; this library gives it no meaning.
    virtual tarnix_eseverity getSeverity() const { return m_Severity; }

    /// @{
    /// The place in the source code that created the message. 0 and empty for a message made from a
    /// record, because the serialised text does not contain them.
    virtual int getLine() const { return m_Line; }
    virtual std::string getFile() const { return m_File; }
    /// @}

    /// The key of the message's pattern in every catalog. An id that is empty or contains white
    /// space is lost when the message is serialised and read back.
    virtual std::string getMessageId() const { return m_MessageId; }

    /// Returns the pattern with the arguments filled in. Never fails: for a bad pattern the result
    /// is what could be formatted, or the pattern itself.
    virtual tstr formatMessage(tstr pattern) = 0;

    /// As formatMessage, with the numbers, dates and plural forms of a language instead of those of
    /// ICU's default locale. The language is an ICU locale name such as "de" or "pt_BR"; a language
    /// without data in ICU, the name of no locale, and "root", give ICU's root conventions, in
    /// which every plural form is `other`. Only `spellout`, `ordinal` and `duration` use the
    /// default locale's rules for a language that has data but no such rules, such as "zu". Calls
    /// formatMessage of the object's class: one that does not use that of CCmnIcuMessage decides
    /// itself, and ignores the language.
    tstr formatInLanguage(tstr pattern, const std::string& language);

protected:
    CCmnMessage() = default;

    /// Copies `msgId` and `file`, which must not be null.
    CCmnMessage(const char* msgId, tarnix_eseverity severity, const char* file, int line);

    /// @{
    /// What the accessors return.
    std::string m_MessageId;
    tarnix_eseverity m_Severity{};
    std::string m_File;
    int m_Line{};
    /// @}
};

/// A message whose arguments are ICU values and whose patterns are those of ICU's MessageFormat.
///
/// The serialised form is lines of text that end in "\n", with a tab before each `<ARGVALUE`:
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
/// | 3 | UTF-8, up to a NUL; empty if not valid Unicode | text up to "<"; empty if not UTF-8 |
/// | else | no value (64-bit integer, array, object) | nothing: later arguments move up |
///
/// A message without arguments is serialised as the empty text: its id and severity are lost. The
/// header line is cut at 1023 bytes: with a severity of d digits (the sign counts as one) an id of
/// more than 985 - d bytes makes the text unreadable. Both directions take time proportional to the
/// length of the text, whatever it contains.
class TARNIX_CMN_API CCmnIcuMessage : public CCmnMessage
{
public:
    /// Copies the `count` arguments, `msgId` and `file`; the two texts must not be null.
    CCmnIcuMessage(const char* msgId, const icu::Formattable* args, int count,
                   tarnix_eseverity severity, const char* file, int line);

    /// An empty message of severity 0, on which deserialize(info) is then called.
    explicit CCmnIcuMessage(const SCmnMessageInfo* info);

    /// @{
    /// Copies share nothing. They copy the reference count too, see CCmnRefCount.
    CCmnIcuMessage(const CCmnIcuMessage& other);
    CCmnIcuMessage& operator=(const CCmnIcuMessage& other);
    ~CCmnIcuMessage() override;
    /// @}

    /// Each call writes the text again; the address of the record does not change.
    const SCmnMessageInfo* serialize() override;

    /// Text before the header and after the last argument is ignored. What malformed text does:
    /// - no "<SERIALIZED_MESSAGE": nothing changes
    /// - a header without an id or a severity: that field stays, the arguments are replaced
    /// - an opening tag without a readable TYPE: adds no argument
    /// - an opening tag without ">": the text ends there
    /// - a value ends at the next "<", where "</ARGVALUE>" is assumed: 11 bytes are skipped unread
    ///
    /// If allocation fails, the message is unchanged; so it is after a failed assignment.
    void deserialize(const SCmnMessageInfo* info) override;

    /// The pattern follows the rules of MessageFormat even if there are no arguments: apostrophes
    /// and braces always have their special meaning. Numbers and dates are formatted for ICU's
    /// default locale, not for the language of the pattern; formatInLanguage formats them for a
    /// language. After a failure the result is what has
    /// been formatted so far, or the unchanged pattern if that is empty. The pattern also comes
    /// back unchanged if its braces nest more than 32 levels deep, as in 17 plurals or selects
    /// inside each other: they could take more stack than a thread has.
    tstr formatMessage(tstr pattern) override;

private:
    void ownRecord();

    icu::Formattable m_Arguments; ///< an array; no array until the arguments have been set
    SCmnMessageInfo m_Info;
    std::string m_Serialized;
};

} // namespace tarnix_cmn_4_4

#endif
