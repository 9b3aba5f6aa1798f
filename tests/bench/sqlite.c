// The same in SQLite: the running store in a data base without syncing, the committed one in a
// data base that is synced at each transaction, brought up to date by one statement.
#include <sqlite3.h>
#include <stdlib.h>

#include "operations.h"

static sqlite3* store_open(const char* folder) {
    static char path[4096];
    sqlite3* store = NULL;
    snprintf(path, sizeof path, "%s/sqlite", getenv(folder));
    if (sqlite3_open_v2(path, &store, SQLITE_OPEN_READWRITE, NULL) != SQLITE_OK) return NULL;
    sqlite3_busy_timeout(store, 10000);
    return store;
}

int value_get(void) {
    sqlite3* store = store_open("BENCH_RUN_DIR");
    sqlite3_stmt* query = NULL;
    if (!store) return 1;
    if (sqlite3_prepare_v2(store, "SELECT value FROM entry WHERE key = '" BENCH_KEY "'", -1, &query,
                           NULL) != SQLITE_OK)
        return 1;
    return sqlite3_step(query) != SQLITE_ROW || !sqlite3_column_text(query, 0);
}

int value_set(const char* value) {
    sqlite3* store = store_open("BENCH_RUN_DIR");
    sqlite3_stmt* update = NULL;
    if (!store) return 1;
    if (sqlite3_exec(store, "PRAGMA synchronous = OFF", NULL, NULL, NULL) != SQLITE_OK) return 1;
    if (sqlite3_prepare_v2(store, "REPLACE INTO entry VALUES('" BENCH_KEY "', ?)", -1, &update,
                           NULL) != SQLITE_OK)
        return 1;
    sqlite3_bind_text(update, 1, value, -1, SQLITE_STATIC);
    return sqlite3_step(update) != SQLITE_DONE || sqlite3_finalize(update) != SQLITE_OK;
}

int value_commit(void) {
    static char statement[8192];
    sqlite3* store = store_open("BENCH_FLASH_DIR");
    if (!store) return 1;
    snprintf(statement, sizeof statement,
             "PRAGMA synchronous = FULL; ATTACH '%s/sqlite' AS running;"
             "REPLACE INTO entry SELECT * FROM running.entry EXCEPT SELECT * FROM entry;",
             getenv("BENCH_RUN_DIR"));
    return sqlite3_exec(store, statement, NULL, NULL, NULL) != SQLITE_OK;
}
