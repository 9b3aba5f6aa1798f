// Another process that reads a key: what it sees does not depend on what this one remembers.
#pragma once

#include <cstdint>

struct Reader {
    int ask;     // an end of a pipe: the name of the key goes in
    int answer;  // an end of a pipe: the value comes out
    bool running;
};

// Starts the reader. It has to be started before this process loads the library; it loads
// `soname` and calls its `getter` only when it is asked.
Reader reader_start(const char* soname, const char* getter);

enum class Read { value, absent, failed };

// Asks for one key, once, and waits for the answer. `out` gets the value, cut to `size` - 1 bytes.
Read reader_ask(Reader& reader, const char* key, char* out, std::uint32_t size);
