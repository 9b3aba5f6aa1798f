// The texts that a library has given out; see kept_text.h.
#include "store/kept_text.h"

#include <stdlib.h>
#include <string.h>

#include <atomic>

struct KeptText {
    KeptText* next;
    char* text;
    std::size_t key_size;
    char key[];
};

// Only ever added to, at the front, so that threads can read it without a lock.
static std::atomic<KeptText*> kept_texts = nullptr;

static char* text_find(const KeptText* from, std::string_view key, const char* text) {
    for (const KeptText* kept = from; kept; kept = kept->next)
        if (std::string_view(kept->key, kept->key_size) == key && strcmp(kept->text, text) == 0)
            return kept->text;
    return nullptr;
}

char* text_keep(std::string_view key, char* text) {
    if (!text) return nullptr;
    KeptText* first = kept_texts.load(std::memory_order_acquire);
    char* known = text_find(first, key, text);
    KeptText* added =
        known ? nullptr : static_cast<KeptText*>(malloc(sizeof(KeptText) + key.size()));
    if (!added) {
        free(text);
        return known;
    }
    added->text = text;
    added->key_size = key.size();
    memcpy(added->key, key.data(), key.size());
    do
        added->next = first;
    while (!kept_texts.compare_exchange_weak(first, added, std::memory_order_acq_rel));
    return text;
}
