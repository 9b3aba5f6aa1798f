// Libraries that are loaded when they are first needed.
//
// The calls of the platform libraries keep their plain C names (see include/); each of them loads
// its library on first use, so that a run pays only for what its command needs and a gateway
// without a library loses only that library's commands. The calls are defined weakly: a firmware
// that links a library in, statically or dynamically, or preloads it, is served by that.
#pragma once

// The address of `symbol`: from what is already in the process, else from the library `soname`,
// which is loaded for it and stays loaded: from the folder of the stock libraries, else from where
// the device's loader finds it; from there first when LD_LIBRARY_PATH is set. Null when neither has
// it; a level-3 log record then names the library and the symbol.
void* library_symbol(const char* soname, const char* symbol);
