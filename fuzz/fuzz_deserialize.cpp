// Fuzzer of the reader of serialised messages. What it reads must be what a plain reader finds,
// which shortens the text from the front, and must survive writing and reading again.
#include "TX_sscanf.h"
#include "cmnmessage.h"
#include "cmnstringtool.h"
#include "fuzzinput.h"

using namespace tarnix_cmn_4_4;
using icu::Formattable;

namespace
{

// What a message holds.
struct Content {
    std::string id;
    int severity = 0;
    std::vector<Formattable> arguments;
};

void readPlainly(std::string rest, Content& content)
{
    constexpr int intSize = sizeof(int);
    std::size_t place = rest.find("<SERIALIZED_MESSAGE");
    if (place == std::string::npos)
        return;
    rest.erase(0, place);
    char id[1024];
    if (TX_sscanf(rest.c_str(), "<SERIALIZED_MESSAGE MSGID=%s SEVERITY=%d>", id,
                  static_cast<int>(sizeof id), &content.severity, intSize) > 0)
        content.id = id;
    rest.erase(0, rest.find('>'));
    while ((place = rest.find("<ARGVALUE")) != std::string::npos) {
        rest.erase(0, place);
        int index = 0, type = -1;
        TX_sscanf(rest.c_str(), "<ARGVALUE INDEX=%d TYPE=%d>", &index, intSize, &type, intSize);
        place = rest.find('>');
        if (place == std::string::npos)
            return;
        rest.erase(0, place + 1);
        const std::string value = rest.substr(0, rest.find('<'));
        rest.erase(0, std::min(value.size() + 11, rest.size())); // the closing tag too
        if (type == Formattable::kDate || type == Formattable::kDouble)
            content.arguments.emplace_back(CCmnStringTool::str2double(value));
        else if (type == Formattable::kLong)
            content.arguments.emplace_back(CCmnStringTool::str2int(value));
        else if (type == Formattable::kString)
            content.arguments.emplace_back(CCmnStringTool::str2ustr(value));
    }
}

void requireSame(CCmnIcuMessage& left, CCmnIcuMessage& right)
{
    require(left.getMessageId() == right.getMessageId() &&
                left.getSeverity() == right.getSeverity() &&
                std::string(left.serialize()->text) == right.serialize()->text,
            "the same message");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text = FuzzInput(data, size).until('\0');
    const SCmnMessageInfo info{text.c_str(), 0};
    CCmnIcuMessage message(&info);
    Content content;
    readPlainly(text, content);
    CCmnIcuMessage expected(content.id.c_str(), content.arguments.data(),
                            static_cast<int>(content.arguments.size()),
                            static_cast<tarnix_eseverity>(content.severity), "", 0);
    requireSame(message, expected);

    // Where the writer's header carries the id, and the reader finds the arguments behind it.
    const std::string id = message.getMessageId();
    const SCmnMessageInfo* const record = message.serialize();
    if (record->length > 0 && !id.empty() && id.find("<ARGVALUE") == std::string::npos &&
        id.size() + std::to_string(message.getSeverity()).size() <= 985) {
        CCmnIcuMessage again(record);
        requireSame(again, message);
    }
    return 0;
}
