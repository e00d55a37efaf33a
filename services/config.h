// Typed configuration values from the override file (Allegro's config format,
// global section). Every default taken is logged.
#pragma once

int config_init();
// Forgets the override file (tests; the program keeps it to the end).
void config_done();

const char* config_string(const char* key, const char* def);
int config_int(const char* key, int def);
long config_long(const char* key, long def);
unsigned short config_hex(const char* key, unsigned short def);
double config_double(const char* key, double def);

double config_osversion();
// Whether "os-version" is given (option or override file), not taken from the kernel.
bool config_osversion_set();
const char* config_userpath();
