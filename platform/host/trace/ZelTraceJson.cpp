#include "ZelTraceJson.h"

#include <charconv>

namespace zel::trace {

namespace {

// Length of the well-formed UTF-8 sequence that starts at text[at], or 0
// (the Unicode standard's table: no overlong forms, no surrogates, nothing
// above U+10FFFF).
std::size_t utf8SequenceLength(std::string_view text, std::size_t at) {
    auto byte = [&](std::size_t k) -> unsigned {
        return at + k < text.size() ? static_cast<unsigned char>(text[at + k]) : 0u;
    };
    const unsigned lead = byte(0);
    std::size_t length = 0;
    unsigned low = 0x80, high = 0xBF;  // range of the second byte
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        return 0;
    }
    if (byte(1) < low || byte(1) > high) return 0;
    for (std::size_t k = 2; k < length; ++k) {
        if (byte(k) < 0x80 || byte(k) > 0xBF) return 0;
    }
    return length;
}

void appendNumber(std::string& out, int64_t number) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof(digits), number).ptr;
    out.append(digits, end);
}

// Microseconds with three decimals: the format's unit, the clock's precision.
void appendMicroseconds(std::string& out, int64_t ns) {
    appendNumber(out, ns / 1000);
    const int64_t fraction = ns % 1000;
    out += '.';
    out += static_cast<char>('0' + fraction / 100);
    out += static_cast<char>('0' + fraction / 10 % 10);
    out += static_cast<char>('0' + fraction % 10);
}

}  // namespace

void appendJsonString(std::string& out, std::string_view text) {
    static constexpr char kHex[] = "0123456789abcdef";
    out += '"';
    for (std::size_t i = 0; i < text.size();) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
            ++i;
        } else if (c < 0x20) {
            out += "\\u00";
            out += kHex[c >> 4];
            out += kHex[c & 0xF];
            ++i;
        } else if (c < 0x80) {
            out += static_cast<char>(c);
            ++i;
        } else if (const std::size_t length = utf8SequenceLength(text, i); length > 0) {
            out.append(text.substr(i, length));
            i += length;
        } else {
            out += "\\ufffd";
            ++i;
        }
    }
    out += '"';
}

void appendJsonEvent(std::string& out, const ZelTraceEvent& event) {
    // "ts" comes first: Perfetto's importer reads it by walking an event's
    // keys in order, and decodes no \u escape on the way.
    out += "{\"ts\":";
    appendMicroseconds(out, event.timeNs);
    out += ",\"ph\":\"";
    out += event.phase;
    out += "\",\"pid\":";
    appendNumber(out, event.pid);
    out += ",\"tid\":";
    appendNumber(out, event.tid);
    out += ",\"name\":";
    appendJsonString(out, event.name);
    if (event.phase == 'i') out += ",\"s\":\"t\"";  // an instant of its thread
    if (event.argCount > 0) {
        out += ",\"args\":{";
        for (std::size_t i = 0; i < event.argCount; ++i) {
            const ZelTraceArg& arg = event.args[i];
            if (i > 0) out += ',';
            appendJsonString(out, arg.key);
            out += ':';
            if (arg.value.isNumber) {
                appendNumber(out, arg.value.number);
            } else {
                appendJsonString(out, arg.value.text);
            }
        }
        out += '}';
    }
    out += '}';
}

}  // namespace zel::trace
