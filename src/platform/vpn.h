// VPN, beside its handlers.
#pragma once

// Whether a line of the tunnel file or the user file has a name that begins with `name`: 1 or 0;
// -1 when the file cannot be opened.
int check_ipsec_tun(const char* name);
int check_pptpd_user(const char* name);

// Asks the IPsec daemon's control tool and writes one line for each tunnel of the tunnel file (the
// first 500) to /tmp/ipsec_stat: "%s %d %s %d \n", its name, 0, peer address, and 1 for
// established. Returns 0; -1 when one of its files cannot be opened or written, a missing tunnel
// file included.
int ipsec_get_state_to_file();
