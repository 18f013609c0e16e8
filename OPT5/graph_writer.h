// Writes graphs for people, in GDL or in DOT.

#ifndef OPT5_GRAPH_WRITER_H
#define OPT5_GRAPH_WRITER_H

#include <cstdio>
#include <string>
#include <string_view>

// The value of a switch that asks for graphs: GRAPH_DOT means DOT, any other but 0 means GDL.
enum GRAPH_FORMAT { GRAPH_GDL = 1, GRAPH_DOT = 2 };
inline GRAPH_FORMAT graph_format(int value) { return value == GRAPH_DOT ? GRAPH_DOT : GRAPH_GDL; }

enum EDGE_KIND { FORWARD_EDGE, BACK_EDGE };
enum NODE_KIND { PLAIN_NODE, FAINT_NODE };

// One file with one directed graph. Titles and labels may hold any bytes: they are escaped, and bytes that
// are no printable ASCII appear as "\xNN". Nodes are named by number. A file that cannot be opened or written
// ends the run with one line and status 1.
class GRAPH_WRITER {
  public:
    GRAPH_WRITER(std::string path, GRAPH_FORMAT format, std::string_view title);
    ~GRAPH_WRITER();
    GRAPH_WRITER(const GRAPH_WRITER&) = delete;
    GRAPH_WRITER& operator=(const GRAPH_WRITER&) = delete;

    // The lines of a label are separated by '\n'.
    void node(unsigned number, std::string_view label, NODE_KIND kind = PLAIN_NODE);
    // A label may be empty.
    void edge(unsigned from, unsigned to, std::string_view label = {}, EDGE_KIND kind = FORWARD_EDGE);
    // What is written between the two stands together, in a box with a title. Groups don't nest.
    void begin_group(unsigned number, std::string_view title);
    void end_group();
    // Completes the file. To be called once, after the last edge.
    void close();

  private:
    void quoted(std::string_view text);
    void put(std::string_view text) { buffer_ += text; }
    void put_number(unsigned number) { buffer_ += std::to_string(number); }
    void flush(bool always);
    [[noreturn]] void fail() const;

    std::string path_;
    GRAPH_FORMAT format_;
    std::FILE* stream_;
    std::string buffer_; // what the stream does not have yet
};

// The name of a graph's file: the stem of `output` (or of `input` where the output is no regular file, such
// as a device), the part, the kind and the extension of the format. Bytes of `part` that are not fit for a
// file name are written as "%XX"; a part that is too long is cut and ends in a hash of the whole.
std::string graph_file_name(const char* output, const char* input, std::string_view part, const char* kind,
                            GRAPH_FORMAT format);

// The text, or its beginning and "..." when it is longer than `limit` bytes.
std::string shortened(std::string_view text, std::size_t limit);

#endif
