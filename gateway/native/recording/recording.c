// What the recording libraries share: the record of a call.
#include "recording.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

bool call_fails(const char* function) {
    FILE* file = run_file("fails");
    if (!file) return false;
    bool found = false;
    char name[128];
    while (!found && fscanf(file, "%127s", name) == 1)
        found = strcmp(name, function) == 0;
    fclose(file);
    return found;
}

char* text_hand_out(const char* text, char** last) {
    if (*last) explicit_bzero(*last, strlen(*last));
    free(*last);
    *last = text ? strdup(text) : NULL;
    return *last;
}

void call_begin(struct Line* line, const char* function) {
    line_text(line, "{\"call\":\"");
    line_text(line, function);
    line_text(line, "\",\"args\":[");
}

static void separate(struct Line* line) {
    if (line->length > 0 && line->text[line->length - 1] != '[') line_text(line, ",");
}

void call_add_text(struct Line* line, const char* argument) {
    separate(line);
    line_json(line, argument);
}

void call_add_number(struct Line* line, long long argument) {
    separate(line);
    line_number(line, argument);
}

void call_end_text(struct Line* line, const char* result) {
    line_text(line, "],\"result\":");
    line_json(line, result);
    line_text(line, "}");
    trace_write(line);
}

void call_end_number(struct Line* line, long long result) {
    line_text(line, "],\"result\":");
    line_number(line, result);
    line_text(line, "}");
    trace_write(line);
}

void call_end_nothing(struct Line* line) {
    line_text(line, "]}");
    trace_write(line);
}
