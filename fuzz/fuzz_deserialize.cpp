// SPDX-License-Identifier: LicenseRef-Tarnix
// Fuzzer of the reader of serialised messages. It must read the same as a simple reader, which
// consumes the text from the front; and the message must survive another round trip. An input that
// starts with a byte 1 is made large by FuzzInput::expanded, and is read for its time and memory:
// the simple reader would be too slow.
#include "TX_sscanf.h"
#include "cmnmessage.h"
#include "cmnstringtool.h"
#include "fuzzbounds.h"

using namespace tarnix_cmn_4_4;
using icu::Formattable;

static CCmnIcuMessage readPlainly(std::string rest)
{
    constexpr int intSize = sizeof(int);
    char id[1024] = "";
    int severity = 0;
    std::vector<Formattable> arguments;
    rest.erase(0, rest.find("<SERIALIZED_MESSAGE")); // all of it if there is none
    TX_sscanf(rest.c_str(), "<SERIALIZED_MESSAGE MSGID=%s SEVERITY=%d>", id,
              static_cast<int>(sizeof id), &severity, intSize);
    rest.erase(0, rest.find('>'));
    while (rest.erase(0, rest.find("<ARGVALUE")).find('>') != std::string::npos) {
        int index = 0, type = -1;
        TX_sscanf(rest.c_str(), "<ARGVALUE INDEX=%d TYPE=%d>", &index, intSize, &type, intSize);
        rest.erase(0, rest.find('>') + 1);
        const std::string value = rest.substr(0, rest.find('<'));
        rest.erase(0, value.size() + 11); // the closing tag too
        if (type == Formattable::kDate || type == Formattable::kDouble)
            arguments.emplace_back(CCmnStringTool::str2double(value));
        else if (type == Formattable::kLong)
            arguments.emplace_back(CCmnStringTool::str2int(value));
        else if (type == Formattable::kString)
            arguments.emplace_back(CCmnStringTool::str2ustr(value));
    }
    return CCmnIcuMessage(id, arguments.data(), static_cast<int>(arguments.size()),
                          static_cast<tarnix_eseverity>(severity), "", 0);
}

static std::string shown(CCmnIcuMessage& message)
{
    return message.getMessageId() + '\n' + std::to_string(message.getSeverity()) + '\n' +
           message.serialize()->text;
}

// The largest use is of short arguments: 112 bytes for an argument, in a text of 12.
static void readWithinBounds(const std::string& text)
{
    const SCmnMessageInfo info{text.c_str(), 0};
    const FuzzBounds bounds(0.05, 2e-7, 1e6, 64, double(text.size()));
    CCmnIcuMessage message(&info);
    message.serialize();
}

void fuzz(FuzzInput input)
{
    const std::string all = input.rest();
    FuzzInput rest(all);
    if (!all.empty() && rest.byte() == 1)
        return readWithinBounds(rest.expanded(1000000));
    const std::string text = all.substr(0, all.find('\0'));
    readWithinBounds(text);
    const SCmnMessageInfo info{text.c_str(), 0};
    CCmnIcuMessage message(&info), expected = readPlainly(text);
    require(shown(message) == shown(expected), "reads the same as the simple reader");

    // If the id fits into the header, and does not look like an argument.
    const std::string id = message.getMessageId();
    const SCmnMessageInfo* const record = message.serialize();
    if (record->length > 0 && !id.empty() && id.find("<ARGVALUE") == std::string::npos &&
        id.size() + std::to_string(message.getSeverity()).size() <= 985) {
        CCmnIcuMessage again(record);
        require(shown(again) == shown(message), "a message survives a round trip");
    }
}
