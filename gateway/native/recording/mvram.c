// A libmvram.so that records each call and forwards it to the stock library.
#include "mvram.h"

#include "recording.h"

#define STOCK "libmvram.so"

EXPORTED char* mvram_get(const char* name) {
    char* (*stock)(const char*) = (char* (*)(const char*))stock_find(STOCK, "mvram_get");
    static char* last;
    const bool answers = stock && !call_fails("mvram_get");
    char* value = text_hand_out(answers ? stock(name) : NULL, &last);
    struct Line line = {0};
    call_begin(&line, "mvram_get");
    call_add_text(&line, name);
    call_end_text(&line, value);
    return value;
}

EXPORTED int mvram_set(const char* name, const char* value) {
    int (*stock)(const char*, const char*) =
        (int (*)(const char*, const char*))stock_find(STOCK, "mvram_set");
    int result = stock && !call_fails("mvram_set") ? stock(name, value) : -1;
    struct Line line = {0};
    call_begin(&line, "mvram_set");
    call_add_text(&line, name);
    call_add_text(&line, value);
    call_end_number(&line, result);
    return result;
}
