#include "DIAG/diag.h"

#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

void (*stored_callback)(int) = nullptr;

constexpr int handled_signals[] = {SIGILL, SIGABRT, SIGFPE, SIGSEGV, SIGTERM, SIGINT,
                                   SIGHUP, SIGTRAP, SIGBUS, SIGSYS,  SIGXCPU, SIGXFSZ};

const char* fault_text(int signal) {
    switch (signal) {
        case SIGILL: return "executed an illegal instruction";
        case SIGTRAP: return "received a TRAP signal";
        case SIGABRT: return "had an internal inconsistency and aborted";
        case SIGBUS: return "experienced a bus alignment fault";
        case SIGFPE: return "received a floating point exception";
        case SIGSEGV: return "experienced a segmentation fault";
        case SIGXCPU: return "exceeded the CPU time limit";
        case SIGXFSZ: return "exceeded the file size limit";
        case SIGSYS: return "experienced a bad system call";
        default: return "experienced a fatal internal fault";
    }
}

void append_arguments(char* buffer, unsigned size, const char* format, va_list args) {
    auto at = static_cast<unsigned>(std::strlen(buffer));
    const auto put = [&](char c) {
        if (at + 1 < size) buffer[at++] = c;
    };
    const auto put_text = [&](const char* text) {
        while (*text != '\0') put(*text++);
    };
    for (; *format != '\0'; format++) {
        if (*format != '%' || format[1] == '\0') {
            put(*format);
            continue;
        }
        switch (*++format) {
            case 's': {
                const char* text = va_arg(args, const char*);
                put_text(plausible_pointer(text) ? text : "<unknown>");
                break;
            }
            case 'd': {
                const int value = va_arg(args, int);
                char digits[12];
                unsigned magnitude =
                    value < 0 ? 0u - static_cast<unsigned>(value) : static_cast<unsigned>(value);
                int n = 0;
                do {
                    digits[n++] = static_cast<char>('0' + magnitude % 10);
                    magnitude /= 10;
                } while (magnitude != 0);
                if (value < 0) put('-');
                while (n > 0) put(digits[--n]);
                break;
            }
            case 'c': put(static_cast<char>(va_arg(args, int))); break;
            default: put(*format); break;
        }
    }
    if (size > 0) buffer[at < size ? at : size - 1] = '\0';
}

} // namespace

bool plausible_pointer(const void* pointer) { return reinterpret_cast<std::uintptr_t>(pointer) > 100000; }

void sigstrnappend(char* buffer, unsigned size, const char* format, ...) {
    va_list args;
    va_start(args, format);
    append_arguments(buffer, size, format, args);
    va_end(args);
}

const char* support_message_text() {
    return "This is caused by a defect in the Norvane C/C++ Optimizer.\n"
           "Norvane Customer Support may be able to suggest a workaround to avoid this.\n\n"
           "Upgrading to the newest version of the compiler may fix this problem.\n\n"
           "If it does not, please report the problem through the issue tracker of the\n"
           "project that this tool came with.\n\n"
           "We need to see this ENTIRE error message and a complete, reproducible\n"
           "test case including ALL of the command-line options.\n"
           "Include the .pp file created by option --preproc_with_comment\n\n";
}

const char* signal_name(int signal) {
    switch (signal) {
        case 1: return "SIGHUP";
        case 2: return "SIGINT";
        case 4: return "SIGILL";
        case 5: return "SIGTRAP";
        case 6: return "SIGABRT";
        case 7: return "SIGBUS";
        case 8: return "SIGFPE";
        case 10: return "SIGUSR1";
        case 11: return "SIGSEGV";
        case 12: return "SIGUSR2";
        case 15: return "SIGTERM";
        case 23: return "SIGURG";
        case 24: return "SIGXCPU";
        case 25: return "SIGXFSZ";
        case 31: return "SIGSYS";
        default: return "<unknown>";
    }
}

void install_common_handlers(void (*handler)(int), void (*callback)(int)) {
    stored_callback = callback;
    if (handler == nullptr) return;
    for (int signal : handled_signals) std::signal(signal, handler);
}

void common_signal_handler(int signal, const char* tool, const char* format, ...) {
    if (!plausible_pointer(tool)) tool = "unknown";
    if (signal == SIGHUP || signal == SIGINT || signal == SIGTERM) {
        std::printf(signal == SIGTERM ? "[%s received a terminate signal]\n" : "[%s forced exit]\n", tool);
        std::fflush(stdout);
        std::_Exit(2);
    }
    static char detail[2048];
    detail[0] = '\0';
    if (plausible_pointer(format)) {
        va_list args;
        va_start(args, format);
        append_arguments(detail, sizeof detail, format, args);
        va_end(args);
    }
    // A fault inside this report must not change what is reported.
    static const char* const text = fault_text(signal);
    std::printf("\nINTERNAL ERROR: %s %s\n", tool, text);
    if (detail[0] != '\0') std::printf("                  %s\n", detail);
    std::printf("\n");
    std::fflush(nullptr);
    std::printf("%s", support_message_text());
    std::fflush(nullptr);
    if (stored_callback != nullptr) stored_callback(signal);
    std::_Exit(2);
}
