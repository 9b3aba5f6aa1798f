// A libwum.so with as many stations as /tmp/stations says, for measuring what each station costs.
#include <stdio.h>
#include <stdlib.h>

#include "wum.h"

static struct StationRecord* stations_make(int count) {
    struct StationRecord* list = calloc((size_t)count + 1, sizeof *list);
    for (int i = 0; list && i < count; i++) {
        snprintf(list[i].ip, sizeof list[i].ip, "10.1.%u.%u", (unsigned)i / 250 % 250,
                 (unsigned)i % 250 + 1);
        snprintf(list[i].ssid, sizeof list[i].ssid, "network");
        list[i].flags = kStationSsidValid;
        list[i].next = i + 1 < count ? &list[i + 1] : NULL;
    }
    return list;
}

void* Web_STAinfo_Get(void) {
    int count = 0;
    FILE* file = fopen("/tmp/stations", "re");
    if (file) {
        if (fscanf(file, "%d", &count) != 1) count = 0;
        fclose(file);
    }
    return count > 0 ? stations_make(count) : NULL;
}

int WUMWTPKickoutSta(int unit, const char* mac) {
    return unit == 0 && mac ? 0 : -1;
}
