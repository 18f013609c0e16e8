// The type section: every record code in every version, damage, and files made to exhaust the reader.
//
// Sections are put together by hand, byte by byte, so that a fault that reader and writer share shows.

#include <cstdio>
#include <initializer_list>
#include <random>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "OPT5/if_file.h"
#include "OPT5/types.h"
#include "tests/unit/file_fixture.h"

namespace {

// One field of a record. Plain numbers are in the unsigned encoding, which is that of bytes and of truth
// values too as far as the numbers are below 128.
struct field {
    bytes data;
    field(unsigned value) {
        for (; value >= 0x80; value >>= 7) data.push_back(static_cast<unsigned char>(value | 0x80));
        data.push_back(static_cast<unsigned char>(value));
    }
    field(int value) : field(static_cast<unsigned>(value)) {}
    field(const char* text) : data(text, text + std::string(text).size() + 1) {}
    field(bytes raw) : data(std::move(raw)) {}
};

// A signed number from -64 to 63, and one signed byte.
field sint(int value) { return bytes{static_cast<unsigned char>(value & 0x7f)}; }
field s8(int value) { return bytes{static_cast<unsigned char>(value)}; }

// A type section under construction, and the file that it makes.
class section {
  public:
    explicit section(int version = ICODE_VERSION) : version_(version) {}

    section& rec(unsigned number, int code, std::initializer_list<field> fields) {
        bytes payload = field(number).data;
        payload.push_back(static_cast<unsigned char>(code));
        for (const field& f : fields) payload.insert(payload.end(), f.data.begin(), f.data.end());
        data_.push_back(REC_TYPE);
        const field size(static_cast<unsigned>(payload.size()));
        data_.insert(data_.end(), size.data.begin(), size.data.end());
        data_.insert(data_.end(), payload.begin(), payload.end());
        return *this;
    }
    section& begin(unsigned owner, int list) { return rec(owner, 254, {list}); }
    section& end(unsigned owner, int list) { return rec(owner, 255, {list}); }
    section& add(const section& more) {
        data_.insert(data_.end(), more.data_.begin(), more.data_.end());
        return *this;
    }

    // The records with the end mark.
    bytes records() const {
        bytes all = data_;
        all.push_back(REC_EOF);
        return all;
    }

    // A whole file: this section and one file name, number 1.
    bytes file() const {
        bytes head;
        const auto put = [&head](std::uint32_t value, int n) {
            for (int i = 0; i < n; i++) head.push_back(static_cast<unsigned char>(value >> (8 * i)));
        };
        const auto size = static_cast<unsigned>(10 + 4 + 20 + 2 + (version_ >= -83 ? 4 : 0));
        const std::uint32_t types = 2 + size + 1;
        const auto files = static_cast<std::uint32_t>(types + records().size());
        const bytes names = {REC_SOURCE, 4, 'a', '.', 'c', 0, REC_EOF};
        put(REC_HEADER, 1);
        put(size, 1);
        for (const char c : "!<icode>\n") put(static_cast<unsigned char>(c), 1);
        put(static_cast<std::uint32_t>(version_), 2);
        put(ICODE_CPU_ID, 2);
        for (const std::uint32_t offset :
             {0u, 0u, types, files, files + static_cast<std::uint32_t>(names.size())})
            put(offset, 4);
        put('t', 2);
        if (version_ >= -83) put(0, 4);
        put(REC_EOF, 1);
        const bytes all = records();
        head.insert(head.end(), all.begin(), all.end());
        head.insert(head.end(), names.begin(), names.end());
        put(REC_EOF, 1);
        return head;
    }

  private:
    int version_;
    bytes data_;
};

// No symbol and no tree is read here.
class no_client final : public IF_CLIENT {
  public:
    BASE_NODE* cl_new_node(int, TYPE*) override { return nullptr; }
    I_SYMTAB* cl_symbol_create(const SYMBOL_RECORD&) override { return nullptr; }
};

struct package : TYPE_PKG {
    package() { init_type_pkg(); }
};

// Reads the types of a file; the fault, or an empty text.
std::string read(const bytes& data, TYPE_PKG& types) {
    faults_throw guard;
    no_client client;
    std::FILE* stream = stream_of(data);
    I_FILE* file = nullptr;
    std::string fault;
    try {
        file = I_FILE::if_open(stream, &client, "in.ic");
        if (file == nullptr) throw file_fault("refused");
        file->if_type_init(&types);
        file->if_read_file_names();
        file->if_read_type_defs();
    } catch (const file_fault& caught) {
        fault = caught.what();
    }
    if (file != nullptr)
        I_FILE::if_close(file, true);
    else
        std::fclose(stream);
    return fault;
}

std::string read(const section& types) {
    package into;
    return read(types.file(), into);
}

// Writes a file that refers to every `step`th type of the package.
bytes write(TYPE_PKG& types, std::size_t step = 1) {
    std::FILE* stream = std::tmpfile();
    I_FILE* file = I_FILE::if_create(fdopen(dup(fileno(stream)), "w+b"), &types, "t", "out.ic");
    for (std::size_t i = 1; i < types.all_types().size(); i += step)
        if (TYPE* type = types.all_types()[i]) type->equiv_end()->set_referenced();
    EXPECT_EQ(I_FILE::if_close(file, false), 0);
    const bytes all = contents(stream);
    std::fclose(stream);
    return all;
}

// The type section of a file.
bytes records_of(const bytes& file) {
    const auto offset = [&file](std::size_t at) {
        return static_cast<long>(file[at] | file[at + 1] << 8 | file[at + 2] << 16);
    };
    const long types = offset(24), files = offset(28), symbols = offset(32);
    return bytes(file.begin() + types, file.begin() + (files != 0 ? files : symbols));
}

// The text of bytes, for readable differences.
std::string hex(const bytes& data) {
    std::string text;
    text.reserve(3 * data.size());
    for (const unsigned char c : data)
        for (const char digit : {"0123456789abcdef"[c >> 4], "0123456789abcdef"[c & 15], ' '}) text += digit;
    return text;
}

// Every record code, in the order in which the writer puts them. With `plain` nothing is used that some
// version cannot say: vectors, structure vectors, attributes of fields, the last flag of members.
section all_codes(int version, bool plain) {
    section s(version);
    const auto from = [version](int first, field f) { return version >= first ? f : field(bytes{}); };
    const auto rich = [plain](int value) { return plain ? 0 : value; };
    const field psn = bytes{1, 3, 9}; // file 1, line 3, column 9
    const auto flags = [&](int width, int bit_field, int flag3) {
        return version >= -85
                   ? field(bytes{static_cast<unsigned char>(width), static_cast<unsigned char>(bit_field), 1,
                                 static_cast<unsigned char>(flag3)})
                   : field(
                         bytes{static_cast<unsigned char>(bit_field), static_cast<unsigned char>(width), 1});
    };
    const auto array = [&](unsigned number, int element, int count, int size, int complete, int vector) {
        s.rec(number, 18,
              {element, count, size, 32, 1, complete, from(-76, vector),
               version == -75 || version == -74 ? field(0) : field(bytes{})});
    };

    // Heads of structures: the short form, the long form with all its lists, a union without members.
    s.rec(17, 24, {0, "S", 1, 0, 64, 32, 1, from(-84, rich(1)), from(-81, 0), psn});
    s.rec(18, 25, {2, "1C", 1, 1, 200, 16, 300, 1, 1, 1, 1, 1, 1, 1, 1, 1, from(-84, 0), from(-81, 1), 0});
    s.rec(19, 24, {1, "U", 0, 0, 0, 16, 0, from(-84, 0), from(-81, 0), 0});

    s.rec(7, 6, {0, 16, 16, 0, 0}).rec(21, 15, {17, 16, 16}).rec(8, 7, {0, 16, 16, 0, 0}).begin(17, 7);
    s.rec(17, 28, {1, "x", 7, 5, sint(0), from(-74, rich(7)), flags(0, 0, rich(1)), 0});
    s.rec(17, 28, {2, "next", 21, 5, sint(-16), from(-74, 0), flags(0, 0, 0), psn});
    s.rec(17, 28, {3, "", 8, 5, sint(32), from(-74, 0), flags(3, 1, 0), psn}).end(17, 7);

    s.rec(22, 20, {7, 0, 1, 0, 1}).begin(22, 0).end(22, 0);
    s.rec(23, 22, {"E", 16, 16, 7, from(-81, 0), psn}).begin(23, 1);
    s.rec(23, 23, {"MINUS", sint(-64), psn}).rec(23, 23, {"PLUS", bytes{0xc0, 0x00}, 0}).end(23, 1);
    array(24, 17, 3, 192, 1, 0);
    s.rec(25, 17, {7, 3, 16, 16}).rec(26, 16, {17, 16, 16});
    s.begin(18, 2).rec(18, 29, {17, sint(16), 1, 1}).end(18, 2);
    s.begin(18, 3).rec(18, 30, {0, 2}).end(18, 3);
    s.begin(18, 4).rec(18, 31, {"peer", 22}).end(18, 4);
    s.begin(18, 5).rec(18, 32, {19}).end(18, 5);
    s.begin(18, 6).rec(18, 33, {23}).end(18, 6);
    s.begin(18, 7).rec(18, 28, {1, "m", 24, 0, sint(0), from(-74, 0), flags(0, 0, 0), 0}).end(18, 7);
    s.begin(18, 8).rec(18, 34, {"s", 25, 4}).end(18, 8);
    s.begin(18, 9).rec(18, 35, {"get", 22, 6, sint(-1), 1, 0, 1, 0}).end(18, 9);
    s.begin(18, 0).rec(18, 21, {26, 0, 400, "p"}).end(18, 0);

    // The rest of the basic types; those that are needed above stand there.
    const int sizes[12] = {16, 16, 16, 16, 16, 16, 16, 16, 32, 32, 64, 64};
    for (const unsigned kind : {0u, 1u, 2u, 3u, 4u, 5u, 8u, 9u, 10u, 11u})
        s.rec(kind + 1, kind < 10 ? static_cast<int>(kind) : static_cast<int>(kind) + 40,
              {0, sizes[kind], sizes[kind] == 16 ? 16 : 32, kind == 0, 0});
    for (const unsigned kind : {0u, 1u, 2u}) s.rec(13 + kind, 10 + static_cast<int>(kind), {32, 32});
    s.rec(16, 49, {});

    s.rec(27, 14, {"T", 21, 16, 16, 1, 1, psn});
    s.rec(28, 13, {s8(-4), 1, 7, 16, 16}).rec(29, 36, {64, 32, 13}).rec(30, 19, {7, 18, 16, 16});
    if (plain)
        array(31, 7, 4, 64, 0, 0);
    else
        array(31, 7, 4, 64, 1, 1);
    s.rec(32, 22, {"", 16, 16, 8, from(-81, rich(2)), 0}).begin(32, 1);
    s.rec(32, 23, {"BIG", bytes{0xff, 0xff, 0x03}, 0}).end(32, 1);
    s.rec(33, 20, {16, 1, 1, 3, 0}).begin(33, 0);
    s.rec(33, 21, {27, 0, 1, "a"}).rec(33, 21, {27, 0, 1, "b"}).end(33, 0);
    s.rec(34, 15, {33, 32, 32}).rec(35, 1, {1, 16, 16, 0, 1}).rec(36, 6, {0, 16, 16, 1, 0});
    return s;
}

// Reads the file and writes what it holds.
bytes again(const bytes& file, std::size_t step = 1) {
    package types;
    EXPECT_EQ(read(file, types), "");
    return write(types, step);
}

TEST(TypeSection, EveryCodeComesBackByteForByte) {
    const section all = all_codes(ICODE_VERSION, false);
    EXPECT_EQ(hex(records_of(again(all.file()))), hex(all.records()));
}

// An older file says less, or says it in another order; what it says is written in today's form.
TEST(TypeSection, EveryVersionIsReadAsItWasWritten) {
    const std::string expected = hex(all_codes(ICODE_VERSION, true).records());
    for (const int version : {-90, -86, -85, -84, -83, -82, -81, -80, -77, -76, -75, -74, -73, -72}) {
        const section old = all_codes(version, true);
        EXPECT_EQ(hex(records_of(again(old.file()))), expected) << "version " << version;
    }
}

TEST(TypeSection, CarriesWhatEachVersionCanSay) {
    const auto has = [](int version, auto question) {
        package types;
        EXPECT_EQ(read(all_codes(version, false).file(), types), "") << version;
        return question(types);
    };
    const auto vector = [](TYPE_PKG& types) { return types.find_type_by_number(31)->is_vector(); };
    EXPECT_TRUE(has(-76, vector));
    EXPECT_FALSE(has(-77, vector));
    const auto attribute = [](TYPE_PKG& types) {
        const fkMDATA* x = types.find_type_by_number(17)->member(1);
        return x->fti != nullptr ? std::string(x->fti) : std::string();
    };
    EXPECT_EQ(has(-74, attribute), "fti:7");
    EXPECT_EQ(has(-75, attribute), "");
    const auto structure_vector = [](TYPE_PKG& types) {
        return types.find_type_by_number(17)->csu().is_struct_vector;
    };
    EXPECT_TRUE(has(-84, structure_vector));
    EXPECT_FALSE(has(-85, structure_vector));
    const auto language = [](TYPE_PKG& types) {
        return types.find_type_by_number(32)->enumeration().language;
    };
    EXPECT_EQ(has(-81, language), 2);
    EXPECT_EQ(has(-82, language), 0);
}

// The numbers of a file are its writer's to choose: they need not be dense, in order, or clear of the basic
// types. What was read once and written is stable from there on, numbers included.
TEST(TypeSection, TheSecondGenerationEqualsTheFirst) {
    section foreign;
    foreign.rec(900, 6, {0, 16, 16, 0, 0}).rec(3, 15, {900, 16, 16}).rec(2, 17, {3, 1, 16, 16});
    foreign.rec(500, 24, {0, "", 1, 0, 16, 16, 1, 0, 0, 0}).rec(5000000, 15, {500, 16, 16});
    foreign.rec(17, 24, {0, "", 1, 0, 16, 16, 1, 0, 0, 0}).rec(4, 15, {17, 16, 16});
    foreign.begin(500, 7).rec(500, 28, {1, "p", 4, 0, 0, 0, 0, 0, 0, 0, 0}).end(500, 7);
    foreign.begin(17, 7).rec(17, 28, {1, "q", 5000000, 0, 0, 0, 0, 0, 0, 0, 0}).end(17, 7);
    foreign.rec(60, 20, {900, 0, 1, 0, 0}).begin(60, 0).rec(60, 21, {2, 0, 0, "a"}).end(60, 0);
    foreign.rec(61, 20, {900, 0, 1, 0, 0}).begin(61, 0).rec(61, 21, {2, 0, 0, "a"}).end(61, 0);
    foreign.rec(20, 15, {61, 16, 16}).rec(21, 15, {60, 16, 16}).rec(70, 14, {"F", 21, 16, 16, 0, 0, 0});

    package types;
    ASSERT_EQ(read(foreign.file(), types), "");
    TYPE* pointer = types.find_named_type("F")->true_type();
    EXPECT_EQ(pointer->uid(), 20u) << "both pointers are one, to one function";
    EXPECT_EQ(pointer->type_pointed_to()->uid(), 60u);

    for (const std::size_t step : {1u, 3u, 7u}) {
        const bytes first = again(foreign.file(), step);
        const bytes second = again(first);
        EXPECT_EQ(hex(second), hex(again(second))) << "every " << step << ". type";
        const bytes codes = again(all_codes(ICODE_VERSION, false).file(), step);
        EXPECT_EQ(hex(records_of(codes)), hex(records_of(again(codes, step))))
            << "every " << step << ". type";
    }
}

TEST(TypeSection, EmptySectionIsAbsent) {
    package types;
    std::FILE* stream = std::tmpfile();
    I_FILE* file = I_FILE::if_create(fdopen(dup(fileno(stream)), "w+b"), &types, "t", "out.ic");
    ASSERT_EQ(I_FILE::if_close(file, false), 0);
    const bytes data = contents(stream);
    std::fclose(stream);
    package into;
    const std::size_t before = into.all_types().size();
    EXPECT_EQ(read(data, into), "");
    EXPECT_EQ(into.all_types().size(), before);
    EXPECT_EQ(data[24] | data[25], 0);
}

// --- Faults. Each section breaks one rule alone.

const section a_struct = section().rec(40, 24, {0, "S", 1, 0, 16, 16, 1, 0, 0, 0});
const section a_func = section().rec(7, 6, {0, 16, 16, 0, 0}).rec(41, 20, {7, 0, 1, 0, 0});
const section an_enum = section().rec(7, 6, {0, 16, 16, 0, 0}).rec(42, 22, {"E", 16, 16, 7, 0, 0});

section after(section start, section more) { return start.add(more); }
section more() { return section(); }

TEST(TypeFaults, OrderOfRecords) {
    const std::pair<section, const char*> cases[] = {
        {more().rec(20, 15, {21, 16, 16}).rec(21, 49, {}), "invalid forward reference"},
        {more().rec(20, 15, {20, 16, 16}), "invalid forward reference"},
        {more().rec(20, 49, {}).rec(20, 49, {}), "read type twice"},
        {more().rec(0, 49, {}), "type number 0"},
        {more().begin(20, 7), "Unexpected type attribute"},
        {more().rec(20, 49, {}).begin(20, 7), "Unexpected type attribute"},
        {more().rec(20, 49, {}).rec(20, 23, {"A", 1, 0}), "Unexpected type attribute"},
        {more().rec(20, 26, {}), "type record of code 26"},
        {more().rec(20, 48, {}), "type record of code 48"},
        {more().rec(20, 253, {}), "type record of code 253"},
        // Lists.
        {after(a_func, more().begin(41, 0).end(41, 0).begin(41, 0)), "Duplicate function parameters"},
        {after(an_enum, more().begin(42, 1).end(42, 1).begin(42, 1)), "Duplicate enumerator attributes"},
        {after(a_struct, more().begin(40, 7).end(40, 7).begin(40, 7)), "Duplicate CSU attributes"},
        {after(a_func, more().begin(41, 7)), "Unexpected type attribute"},
        {after(a_struct, more().begin(40, 10)), "type list 10"},
        {after(a_struct, more().rec(40, 254, {s8(-1)})), "type list -1"},
        {after(a_struct, more().end(40, 7)), "Unexpected type attribute"},
        {after(an_enum, more().begin(42, 1).end(42, 0)), "Unexpected type attribute"},
        {after(an_enum, more().rec(42, 23, {"A", 1, 0})), "Unexpected type attribute"},
        {after(an_enum, more().begin(42, 1).rec(42, 21, {7, 0, 0, ""})), "Unexpected type attribute"},
        {a_func, "not complete"},
        {after(an_enum, more().begin(42, 1)), "not complete"},
        {a_struct, "not complete"},
        // An open function or enumeration is not yet a type.
        {after(a_func, more().rec(50, 15, {41, 16, 16})), "invalid forward reference"},
        {after(a_func, more().begin(41, 0).rec(41, 21, {41, 0, 0, ""})), "invalid forward reference"},
        {after(an_enum, more().rec(50, 15, {42, 16, 16})), "invalid forward reference"},
    };
    for (const auto& [records, expected] : cases)
        EXPECT_NE(read(records).find(expected), std::string::npos)
            << "expected " << expected << ", got '" << read(records) << "'";
}

TEST(TypeFaults, TypesThatMakeNoSense) {
    const section i = more().rec(7, 6, {0, 16, 16, 0, 0}).rec(8, 15, {7, 16, 16});
    const section open = after(i, a_struct).begin(40, 7);
    const auto member = [](unsigned owner, int number, unsigned type) {
        return more().rec(owner, 28, {number, "m", type, 0, 0, 0, 0, 0, 0, 0, 0});
    };
    const section two = after(a_struct, more().rec(43, 24, {0, "T", 1, 0, 16, 16, 1, 0, 0, 0}));
    const std::pair<section, const char*> cases[] = {
        {more().rec(20, 15, {0, 16, 16}), "a pointer of no type"},
        {more().rec(20, 18, {0, 1, 16, 16, 0, 1, 0}), "a array of no type"},
        {after(i, more().rec(20, 36, {32, 16, 8})), "a complex type of an unfit type"},
        {after(i, more().rec(20, 13, {0, 0, 8, 16, 16})), "a fixed point type of an unfit type"},
        {after(i, more().rec(20, 22, {"E", 16, 16, 8, 0, 0})), "a enumeration of an unfit type"},
        {after(i, more().rec(20, 19, {7, 7, 16, 16})), "a pointer to member of an unfit type"},
        {more().rec(20, 24, {3, "S", 1, 0, 16, 16, 0, 0, 0, 0}), "structure code 3"},
        {after(open, member(40, 2, 7)), "member 2 stands out of order"},
        {more().rec(20, 24, {0, "S", 1, 0, 16, 16, 0, 0, 0, 2}), "file number 2"},
        {more().rec(20, 15, {}), "past the end of its record"},
        // A structure cannot hold itself: directly, in an array, or by way of another.
        {after(open, member(40, 1, 40).end(40, 7)), "holds itself"},
        {after(a_struct, more().rec(50, 18, {40, 2, 32, 16, 0, 1, 0}).begin(40, 7))
             .add(member(40, 1, 50).end(40, 7)),
         "holds itself"},
        {after(two, more().begin(40, 7).add(member(40, 1, 43)).end(40, 7))
             .add(more().begin(43, 7).add(member(43, 1, 40)).end(43, 7)),
         "holds itself"},
    };
    for (const auto& [records, expected] : cases)
        EXPECT_NE(read(records).find(expected), std::string::npos)
            << "expected " << expected << ", got '" << read(records) << "'";
}

// --- Size and shape.

// Does with a package's types what the rest of the system does, and checks that they can be written.
void use_all(TYPE_PKG& types) {
    const std::vector<TYPE*> all = types.all_types();
    for (TYPE* type : all) {
        if (type == nullptr) continue;
        TYPE* normal = type->normalized();
        EXPECT_EQ(normal->normalized(), normal);
        type->printstr();
        types.compatible_types(type, normal, false);
        type->is_const();
        type->stds();
    }
    for (TYPE* type : all)
        if (type != nullptr) types.find_equivalent_type(type);
    const bytes second = again(write(types));
    const bytes third = again(second);
    EXPECT_TRUE(records_of(second) == records_of(third)) << hex(second) << "\n" << hex(third);
}

// Types of a hundred thousand levels cost neither stack nor time.
class TypeChains : public ::testing::TestWithParam<int> {};

TEST_P(TypeChains, MayBeLong) {
    constexpr unsigned LENGTH = 100'000;
    const int code = GetParam();
    section chain;
    chain.rec(7, 6, {0, 16, 16, 0, 0});
    for (unsigned n = 0; n < LENGTH; n++) {
        const unsigned target = n == 0 ? 7 : 99 + n, number = 100 + n;
        switch (code) {
            case 15: chain.rec(number, 15, {target, 16, 16}); break;
            case 17: chain.rec(number, 17, {target, n % 2 == 0 ? 1 : 2, 16, 16}); break;
            case 14: chain.rec(number, 14, {"T", target, 16, 16, 0, 0, 0}); break;
            case 18: chain.rec(number, 18, {target, 1, 16, 16, 0, 1, 0}); break;
            default:
                chain.rec(number, 20, {7, 0, 1, 0, 0}).begin(number, 0);
                chain.rec(number, 21, {target, 0, 0, ""}).end(number, 0);
        }
    }
    package types;
    ASSERT_EQ(read(chain.file(), types), "");
    use_all(types);
}

INSTANTIATE_TEST_SUITE_P(Codes, TypeChains, ::testing::Values(15, 17, 14, 18, 20));

// Each function takes the one before it twice, so a walk along all paths would take two to the power of
// their number. Two such towers that differ in nothing but the names of parameters are compared.
TEST(TypeShapes, SharedPartsAreWalkedOnce) {
    constexpr unsigned HEIGHT = 200;
    section towers;
    towers.rec(7, 6, {0, 16, 16, 0, 0});
    for (unsigned n = 0; n < 2 * HEIGHT; n++) {
        const unsigned number = 100 + n, part = n < 2 ? 7 : number - 2;
        towers.rec(number, 20, {part, 0, 1, 0, 0}).begin(number, 0);
        for (int i = 0; i < 2; i++) towers.rec(number, 21, {part, 0, 0, n % 2 == 0 ? "a" : "b"});
        towers.end(number, 0);
    }
    package types;
    ASSERT_EQ(read(towers.file(), types), "");
    TYPE* left = types.find_type_by_number(98 + 2 * HEIGHT);
    TYPE* right = types.find_type_by_number(99 + 2 * HEIGHT);
    ASSERT_NE(left, right);
    EXPECT_TRUE(types.compatible_types(left, right, false));
    EXPECT_EQ(left->normalized(), right->normalized());
    EXPECT_LT(left->printstr().size(), 20000u);
    use_all(types);
}

// Structures of one name in a ring: `held` of them hold the next one by value as well, which tells them
// apart. Without that, all are one but for a last one that has another member, or all are one.
void make_ring(TYPE_PKG& types, unsigned held, bool last_differs) {
    constexpr unsigned COUNT = 30'000;
    section heads, lists;
    for (unsigned n = 0; n < COUNT; n++) {
        const unsigned number = 100 + n, next = 100 + (n + 1) % COUNT;
        heads.rec(number, 24, {0, "S", 1, 0, 16, 16, 1, 0, 0, 0});
        lists.rec(number + COUNT, 15, {next, 16, 16}).begin(number, 7);
        const char* name = last_differs && n + 1 == COUNT ? "first" : "next";
        lists.rec(number, 28, {1, name, number + COUNT, 0, 0, 0, 0, 0, 0, 0, 0});
        if (n < held && n + 1 < COUNT) lists.rec(number, 28, {2, "held", next, 0, 16, 0, 0, 0, 0, 0, 0});
        lists.end(number, 7);
    }
    ASSERT_EQ(read(heads.add(lists).file(), types), "");
}

struct ring {
    unsigned held;
    bool last_differs;
    std::size_t different; // structures that are left when all types are merged
};
class TypeRings : public ::testing::TestWithParam<ring> {};

TEST_P(TypeRings, MayBeMany) {
    const auto [held, last_differs, expected] = GetParam();
    package types;
    make_ring(types, held, last_differs);
    use_all(types);
    std::set<unsigned> numbers;
    for (TYPE* type : types.all_types())
        if (type != nullptr && type->is_csu()) numbers.insert(type->equiv_end()->uid());
    EXPECT_EQ(numbers.size(), expected);
}

INSTANTIATE_TEST_SUITE_P(Rings, TypeRings,
                         ::testing::Values(ring{30'000, false, 30'000}, ring{0, true, 30'000},
                                           ring{0, false, 1}));

// --- Damage.

// What a damaged file must not do, sanitizers and the clock judge; what is read must also be usable.
TEST(TypeDamage, EverySingleByteMutationEndsCleanly) {
    const bytes data = all_codes(ICODE_VERSION, false).file();
    const std::size_t start = data[24] | data[25] << 8;
    for (std::size_t at = start; at < data.size(); at++)
        for (const int change : {0x01, 0x02, 0x10, 0x40, 0x80, 0xff}) {
            bytes mutant = data;
            mutant[at] = static_cast<unsigned char>(mutant[at] ^ change);
            package types;
            if (read(mutant, types).empty()) use_all(types);
        }
}

TEST(TypeDamage, EveryTruncationIsAFault) {
    const bytes data = all_codes(ICODE_VERSION, false).file();
    const std::size_t start = data[24] | data[25] << 8;
    const std::size_t end = data[28] | data[29] << 8;
    for (std::size_t n = start; n < end; n++) {
        package types;
        // The file's other sections stay where the header says.
        bytes cut = data;
        cut.erase(cut.begin() + static_cast<long>(n), cut.begin() + static_cast<long>(end));
        cut.resize(data.size());
        EXPECT_NE(read(cut, types), "") << "cut to " << n << " bytes";
    }
}

// Random records with small numbers, so that many of them fit together.
TEST(TypeDamage, RandomSectionsEndCleanly) {
    int usable = 0;
    for (unsigned seed = 0; seed < 3000; seed++) {
        std::mt19937 random(seed);
        const auto pick = [&random](unsigned n) { return static_cast<unsigned>(random() % n); };
        section s;
        s.rec(1, 6, {0, 16, 16, 0, 0});
        unsigned next = 2;
        const unsigned structures = pick(3);
        for (unsigned n = 0; n < structures; n++)
            s.rec(next++, 24, {pick(3), pick(2) == 0 ? "S" : "", pick(2), 0, 16, 16, 1, 0, 0, 0});
        for (unsigned n = pick(20); n > 0; n--) {
            const unsigned a = 1 + pick(next - 1), b = 1 + pick(next - 1);
            switch (pick(9)) {
                case 0: s.rec(next, 15 + static_cast<int>(pick(2)), {a, 16, 16}); break;
                case 1: s.rec(next, 17, {a, 1 + pick(7), 16, 16}); break;
                case 2: s.rec(next, 14, {pick(2) == 0 ? "T" : "U", a, 16, 16, 0, pick(2), 0}); break;
                case 3: s.rec(next, 18, {a, pick(3), pick(200), 16, 0, pick(2), pick(2)}); break;
                case 4: s.rec(next, 49, {}); break;
                case 5:
                    s.rec(next, 20, {a, pick(2), pick(2), 0, 0}).begin(next, 0);
                    for (unsigned i = pick(3); i > 0; i--) s.rec(next, 21, {b, 0, pick(2), "p"});
                    s.end(next, 0);
                    break;
                case 6: s.rec(next, 22, {"E", 16, 16, 1, 0, 0}).begin(next, 1).end(next, 1); break;
                case 7: s.rec(next, 36, {32, 16, 1}); break;
                default: s.rec(next, 15, {pick(30) == 0 ? next : a, 16, 16});
            }
            next++;
        }
        for (unsigned n = 0; n < structures; n++) {
            s.begin(2 + n, 7);
            for (unsigned i = 0, members = pick(4); i < members; i++)
                s.rec(2 + n, 28, {i + 1, "m", 1 + pick(next - 1), 0, 0, 0, 0, 0, 0, 0, 0});
            s.end(2 + n, 7);
        }
        package types;
        if (read(s.file(), types).empty()) {
            use_all(types);
            usable++;
        }
    }
    EXPECT_GT(usable, 1000) << "the generator makes hardly any readable section";
}

} // namespace
