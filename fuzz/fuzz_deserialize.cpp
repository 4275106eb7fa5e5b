// Fuzzer of the reader of serialised messages. What it reads must be what a plain reader finds,
// which shortens the text from the front, and must survive writing and reading again.
#include "TX_sscanf.h"
#include "cmnmessage.h"
#include "cmnstringtool.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

using namespace tarnix_cmn_4_4;
using icu::Formattable;

namespace
{

constexpr int kIntSize = sizeof(int);
constexpr std::size_t kClosingLength = 11;

// What there is before anything is read.
struct Content {
    std::string id = "before";
    int severity = -7;
    std::vector<Formattable> arguments{Formattable(1)};
};

CCmnIcuMessage makeMessage(const Content& content)
{
    return CCmnIcuMessage(content.id.c_str(), content.arguments.data(),
                          static_cast<int>(content.arguments.size()),
                          static_cast<tarnix_eseverity>(content.severity), "", 0);
}

void addValue(std::vector<Formattable>& arguments, int type, const std::string& value)
{
    if (type == Formattable::kDate || type == Formattable::kDouble)
        arguments.emplace_back(CCmnStringTool::str2double(value));
    else if (type == Formattable::kLong)
        arguments.emplace_back(CCmnStringTool::str2int(value));
    else if (type == Formattable::kString)
        arguments.emplace_back(CCmnStringTool::str2ustr(value));
}

void readPlainly(std::string rest, Content& content)
{
    std::size_t place = rest.find("<SERIALIZED_MESSAGE");
    if (place == std::string::npos)
        return;
    rest.erase(0, place);
    char id[1024];
    if (TX_sscanf(rest.c_str(), "<SERIALIZED_MESSAGE MSGID=%s SEVERITY=%d>", id,
                  static_cast<int>(sizeof id), &content.severity, kIntSize) > 0)
        content.id = id;
    content.arguments.clear();
    rest.erase(0, rest.find('>'));
    while ((place = rest.find("<ARGVALUE")) != std::string::npos) {
        rest.erase(0, place);
        int index = 0;
        int type = -1;
        TX_sscanf(rest.c_str(), "<ARGVALUE INDEX=%d TYPE=%d>", &index, kIntSize, &type, kIntSize);
        place = rest.find('>');
        if (place == std::string::npos)
            return;
        rest.erase(0, place + 1);
        const std::string value = rest.substr(0, rest.find('<'));
        rest.erase(0, value.size() + std::min(kClosingLength, rest.size() - value.size()));
        addValue(content.arguments, type, value);
    }
}

void require(bool condition)
{
    if (!condition)
        __builtin_trap();
}

void requireSame(CCmnIcuMessage& left, CCmnIcuMessage& right)
{
    require(left.getMessageId() == right.getMessageId());
    require(left.getSeverity() == right.getSeverity());
    require(std::string(left.serialize()->text) == right.serialize()->text);
}

// Whether the writer's header carries the id, and the reader finds the arguments behind it.
bool survives(const CCmnIcuMessage& message)
{
    const std::string id = message.getMessageId();
    const std::size_t digits = std::to_string(message.getSeverity()).size();
    return !id.empty() && id.size() + digits <= 985 && id.find("<ARGVALUE") == std::string::npos;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string whole(reinterpret_cast<const char*>(data), size);
    const std::string text = whole.c_str();
    const SCmnMessageInfo info{text.c_str(), 0};
    Content content;
    CCmnIcuMessage message = makeMessage(content);
    message.deserialize(&info);
    readPlainly(text, content);
    CCmnIcuMessage expected = makeMessage(content);
    requireSame(message, expected);

    const SCmnMessageInfo* const record = message.serialize();
    if (record->length > 0 && survives(message)) {
        CCmnIcuMessage again(record);
        requireSame(again, message);
    }
    return 0;
}
