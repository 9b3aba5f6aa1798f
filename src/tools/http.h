// HTTP: a download into a file, an upload in the background, and reading a downloaded JSON file.
#pragma once

struct cJSON;

// Downloads `url` into the file `path`, which is created or emptied first. Returns 1 when the
// transfer was tried, also when it failed (the file is then empty or holds a part); 0 when the
// file cannot be created or libcurl is not there. No time-out; redirects are not followed.
int getUrl(const char* path, const char* url);

// Uploads a file as the form field "file" with the device's curl, in the background; the outcome
// is never known. Uploads nothing when the command does not fit into 1023 characters or the URL
// begins with "-". Returns 0.
int curl_post_file(const char* url, const char* path);

// Parses a JSON file. A missing file is tried four times (0.3 s between), an unparsable one three
// times (0.5 s between), since it may still be being written. The caller owns the tree; null on
// failure or for a null path.
cJSON* cJSON_Parse_File(const char* path);

// The same, with a log record of its own on failure.
cJSON* parse_file_to_Json(const char* path);
