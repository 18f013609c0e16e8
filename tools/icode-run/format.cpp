// printf.

#include <cstring>

#include "tools/icode-run/machine.h"

std::string format_text(machine& m, const std::string& format, argument_source& args) {
    constexpr std::int64_t MAX_WIDTH = 4096;
    std::string out;
    for (std::size_t i = 0; i < format.size(); i++) {
        if (format[i] != '%') {
            out.push_back(format[i]);
            continue;
        }
        // Flags, width and precision are passed on to the host, with the length of the host.
        std::string spec = "%";
        i++;
        while (i < format.size() && std::strchr("-+ #0", format[i]) != nullptr) spec.push_back(format[i++]);
        const auto number = [&] {
            std::int64_t value = 0;
            if (i < format.size() && format[i] == '*') {
                value = args.next(KIND::I16);
                i++;
            } else {
                while (i < format.size() && format[i] >= '0' && format[i] <= '9')
                    value = std::min(MAX_WIDTH, value * 10 + (format[i++] - '0'));
            }
            return value;
        };
        const std::int64_t width = number();
        if (width != 0) spec += std::to_string(width);
        if (i < format.size() && format[i] == '.') {
            i++;
            const std::int64_t precision = number();
            if (precision >= 0) spec += "." + std::to_string(precision);
        }
        int longs = 0;
        while (i < format.size() && std::strchr("hlLzjt", format[i]) != nullptr) {
            if (format[i] == 'l') longs++;
            if (format[i] == 'j') longs = 2;
            i++;
        }
        if (i >= format.size()) break;
        const char conversion = format[i];
        char buffer[MAX_WIDTH + 512];
        const auto put = [&](const char* text) { out += text; };
        switch (conversion) {
            case 'd':
            case 'i': {
                const std::int64_t v = args.next(longs == 0 ? KIND::I16 : longs == 1 ? KIND::I32 : KIND::I64);
                std::snprintf(buffer, sizeof buffer, (spec + "lld").c_str(), static_cast<long long>(v));
                put(buffer);
                break;
            }
            case 'u':
            case 'x':
            case 'X':
            case 'o': {
                const std::int64_t v = args.next(longs == 0 ? KIND::U16 : longs == 1 ? KIND::U32 : KIND::U64);
                std::snprintf(buffer, sizeof buffer, (spec + "ll" + conversion).c_str(),
                              static_cast<unsigned long long>(v));
                put(buffer);
                break;
            }
            case 'c': {
                const std::int64_t v = args.next(KIND::I16);
                std::snprintf(buffer, sizeof buffer, (spec + "c").c_str(), static_cast<int>(v & 0xff));
                if ((v & 0xff) == 0)
                    out.push_back('\0');
                else
                    put(buffer);
                break;
            }
            case 's': {
                const auto at = static_cast<std::uint32_t>(args.next(KIND::U16));
                std::string text;
                // A precision bounds what is read, too.
                const std::size_t dot = spec.find('.');
                if (dot == std::string::npos) {
                    text = text_at(m, at);
                } else {
                    const std::size_t limit = std::stoul(spec.substr(dot + 1));
                    for (std::size_t k = 0; k < limit; k++) {
                        const std::int64_t u = m.space().load(KIND::U16, at + static_cast<std::uint32_t>(k));
                        if (u == 0) break;
                        text.push_back(static_cast<char>(u));
                    }
                    spec.resize(dot);
                }
                const std::int64_t pad = std::abs(width) - static_cast<std::int64_t>(text.size());
                const bool left = spec.find('-') != std::string::npos;
                if (!left && pad > 0) out.append(static_cast<std::size_t>(pad), ' ');
                out += text;
                if (left && pad > 0) out.append(static_cast<std::size_t>(pad), ' ');
                break;
            }
            case 'p':
                std::snprintf(buffer, sizeof buffer, "0x%04x", static_cast<unsigned>(args.next(KIND::U16)));
                put(buffer);
                break;
            case 'f':
            case 'F':
            case 'e':
            case 'E':
            case 'g':
            case 'G':
            case 'a':
            case 'A':
                std::snprintf(buffer, sizeof buffer, (spec + conversion).c_str(),
                              static_cast<double>(to_float(args.next(KIND::F32))));
                put(buffer);
                break;
            case '%': out.push_back('%'); break;
            default:
                out += spec;
                out.push_back(conversion);
                break;
        }
    }
    return out;
}
