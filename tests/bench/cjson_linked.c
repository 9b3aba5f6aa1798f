// What loading cJSON alone costs: an empty program that needs the library.
#include <cjson/cJSON.h>

int main(void) {
    return cJSON_Version() == NULL;
}
