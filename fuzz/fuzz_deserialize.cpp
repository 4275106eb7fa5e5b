// Fuzzer of the reader of serialised messages. What it reads must be what a plain reader finds,
// which shortens the text from the front, and must survive writing and reading again.
#include "TX_sscanf.h"
#include "cmnmessage.h"
#include "cmnstringtool.h"

#include <algorithm>
#include <string>
#include <vector>

using namespace tarnix_cmn_4_4;
using icu::Formattable;

namespace
{

// What a message holds; at first, what it held before it was read.
struct Content {
    std::string id = "before";
    int severity = -7;
    std::vector<Formattable> arguments{Formattable(1)};

    CCmnIcuMessage message() const
    {
        return CCmnIcuMessage(id.c_str(), arguments.data(), static_cast<int>(arguments.size()),
                              static_cast<tarnix_eseverity>(severity), "", 0);
    }
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
    content.arguments.clear();
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
    if (left.getMessageId() != right.getMessageId() || left.getSeverity() != right.getSeverity() ||
        std::string(left.serialize()->text) != right.serialize()->text)
        __builtin_trap();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text = std::string(reinterpret_cast<const char*>(data), size).c_str();
    const SCmnMessageInfo info{text.c_str(), 0};
    Content content;
    CCmnIcuMessage message = content.message();
    message.deserialize(&info);
    readPlainly(text, content);
    CCmnIcuMessage expected = content.message();
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
