// A libnvram.so that records each call and forwards it to the stock library.
#include "nvram.h"

#include "recording.h"

#define STOCK "libnvram.so"

EXPORTED char* nvram_get(const char* name) {
    char* (*stock)(const char*) = (char* (*)(const char*))stock_find(STOCK, "nvram_get");
    static char* last;
    const bool answers = stock && !call_fails("nvram_get");
    char* value = text_hand_out(answers ? stock(name) : NULL, &last);
    struct Line line = {0};
    call_begin(&line, "nvram_get");
    call_add_text(&line, name);
    call_end_text(&line, value);
    return value;
}

EXPORTED int nvram_set(const char* name, const char* value) {
    int (*stock)(const char*, const char*) =
        (int (*)(const char*, const char*))stock_find(STOCK, "nvram_set");
    int result = stock && !call_fails("nvram_set") ? stock(name, value) : -1;
    struct Line line = {0};
    call_begin(&line, "nvram_set");
    call_add_text(&line, name);
    call_add_text(&line, value);
    call_end_number(&line, result);
    return result;
}

EXPORTED int nvram_commit(void) {
    int (*stock)(void) = (int (*)(void))stock_find(STOCK, "nvram_commit");
    int result = stock && !call_fails("nvram_commit") ? stock() : -1;
    struct Line line = {0};
    call_begin(&line, "nvram_commit");
    call_end_number(&line, result);
    return result;
}
