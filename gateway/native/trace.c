// Writes the record of a run, and reads the simple files that prepare one.
#include "trace.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

void line_add(struct Line* line, const char* bytes, size_t count) {
    if (line->lost) return;
    if (line->room - line->length < count) {
        size_t room = (line->length + count) * 2 + 256;
        char* text = realloc(line->text, room);
        if (!text) {
            line->lost = true;
            return;
        }
        line->text = text;
        line->room = room;
    }
    memcpy(line->text + line->length, bytes, count);
    line->length += count;
}

void line_text(struct Line* line, const char* text) {
    line_add(line, text, strlen(text));
}

void line_number(struct Line* line, long long number) {
    char digits[32];
    int count = snprintf(digits, sizeof digits, "%lld", number);
    line_add(line, digits, (size_t)count);
}

// The first two bytes of the UTF-8 characters of each length. The rows leave out characters written
// longer than needed, surrogates, and what lies beyond the last character.
struct Utf8Row {
    unsigned char first_low, first_high, second_low, second_high;
    size_t length;
};

static const struct Utf8Row kUtf8Rows[] = {
    {0x01, 0x7f, 0x00, 0xff, 1}, {0xc2, 0xdf, 0x80, 0xbf, 2}, {0xe0, 0xe0, 0xa0, 0xbf, 3},
    {0xe1, 0xec, 0x80, 0xbf, 3}, {0xed, 0xed, 0x80, 0x9f, 3}, {0xee, 0xef, 0x80, 0xbf, 3},
    {0xf0, 0xf0, 0x90, 0xbf, 4}, {0xf1, 0xf3, 0x80, 0xbf, 4}, {0xf4, 0xf4, 0x80, 0x8f, 4},
};

static bool in_range(unsigned char byte, unsigned char low, unsigned char high) {
    return byte >= low && byte <= high;
}

// The length of the UTF-8 character at the start of the text, or 0 when there is none.
static size_t utf8_length(const unsigned char* text) {
    for (size_t i = 0; i < sizeof kUtf8Rows / sizeof *kUtf8Rows; i++) {
        const struct Utf8Row* row = &kUtf8Rows[i];
        if (!in_range(text[0], row->first_low, row->first_high)) continue;
        if (!in_range(text[1], row->second_low, row->second_high)) return 0;
        for (size_t next = 2; next < row->length; next++) {
            if (!in_range(text[next], 0x80, 0xbf)) return 0;
        }
        return row->length;
    }
    return 0;
}

void line_json(struct Line* line, const char* text) {
    if (!text) {
        line_text(line, "null");
        return;
    }
    line_text(line, "\"");
    for (const unsigned char* at = (const unsigned char*)text; *at;) {
        size_t length = utf8_length(at);
        char escape[8];
        if (length == 0) {
            int count = snprintf(escape, sizeof escape, "\\udc%02x", *at);
            line_add(line, escape, (size_t)count);
            at++;
        } else if (*at < 0x20 || *at == '"' || *at == '\\' || *at == 0x7f) {
            int count = snprintf(escape, sizeof escape, "\\u%04x", *at);
            line_add(line, escape, (size_t)count);
            at++;
        } else {
            line_add(line, (const char*)at, length);
            at += length;
        }
    }
    line_text(line, "\"");
}

off_t trace_write(struct Line* line) {
    line_text(line, "\n");
    off_t end = -1;
    int trace = open(RUN_DIR "/trace", O_WRONLY | O_APPEND | O_CLOEXEC);
    if (trace >= 0 && !line->lost &&
        write(trace, line->text, line->length) == (ssize_t)line->length) {
        end = lseek(trace, 0, SEEK_CUR);
    }
    if (trace >= 0) close(trace);
    free(line->text);
    *line = (struct Line){0};
    return end;
}

FILE* run_file(const char* name) {
    char path[256];
    snprintf(path, sizeof path, RUN_DIR "/%s", name);
    return fopen(path, "re");
}

char* word_next(char** rest) {
    *rest += strspn(*rest, " \n");
    if (!**rest) return NULL;
    char* word = *rest;
    *rest += strcspn(*rest, " \n");
    if (**rest) *(*rest)++ = '\0';
    return word;
}

static int hex_digit(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    return -1;
}

size_t hex_decode(char* text) {
    size_t count = 0;
    for (const char* at = text; hex_digit(at[0]) >= 0 && hex_digit(at[1]) >= 0; at += 2) {
        text[count++] = (char)(hex_digit(at[0]) * 16 + hex_digit(at[1]));
    }
    text[count] = '\0';
    return count;
}
