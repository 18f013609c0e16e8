// Fatal signals and the text that asks for a report.

#ifndef DIAG_DIAG_H
#define DIAG_DIAG_H

// Installs `handler` for every signal that ends a run, and keeps `callback` for common_signal_handler; either
// may be null.
void install_common_handlers(void (*handler)(int), void (*callback)(int));

// Reports the signal on standard output, calls the stored callback and ends the process with status 2. The
// detail text is formatted as by sigstrnappend. Only for use inside a signal handler.
void common_signal_handler(int signal, const char* tool, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// Appends formatted text to the zero-terminated `buffer` of `size` bytes, cut to fit and terminated. Knows
// %s, %d, %c and %%; a string argument that cannot be a valid pointer prints as "<unknown>". Safe in a signal
// handler.
void sigstrnappend(char* buffer, unsigned size, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// True for a value that can be a valid pointer: corrupt state is likely where signals are handled.
bool plausible_pointer(const void* pointer);

// The text that asks for a report of an internal error.
const char* support_message_text();

// The name of a signal, "<unknown>" for those that no report names.
const char* signal_name(int signal);

#endif
