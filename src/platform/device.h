// Device administration, beside its handlers.
#pragma once

// The hashed form of the administrator password, as the gateway's hashing tool makes it; empty on
// any failure (the tool fails, prints nothing, or the password does not fit into its command). The
// text lies in one buffer of 256 bytes that the next call overwrites.
const char* write_admin_auth(const char* password);
