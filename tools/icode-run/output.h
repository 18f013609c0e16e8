// What the running program prints.

#ifndef ICODE_RUN_OUTPUT_H
#define ICODE_RUN_OUTPUT_H

#include <cstdio>
#include <string>
#include <string_view>

namespace run {

// Standard output is collected and written in large pieces; standard error goes out at once, behind what
// was collected, so that both keep their order on a terminal.
class output_stream {
  public:
    ~output_stream() { flush(); }

    // `stream` is 1 or 2.
    void write(int stream, std::string_view text) {
        if (stream == 2) {
            flush();
            std::fwrite(text.data(), 1, text.size(), stderr);
            return;
        }
        buffer_.append(text);
        if (buffer_.size() >= LIMIT) flush();
    }
    void flush() {
        std::fwrite(buffer_.data(), 1, buffer_.size(), stdout);
        std::fflush(stdout);
        buffer_.clear();
    }

  private:
    static constexpr std::size_t LIMIT = 1 << 16;
    std::string buffer_;
};

} // namespace run

#endif
