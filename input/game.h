// Raw access to the input byte of the PC game port: buttons in the upper
// four bits, clear = pressed.
#pragma once

// Reads "game-port" (default "0x201").
int game_init();
// The address as decimal first, then as hexadecimal ("0x201" reads 0 as a
// decimal and is then taken as hex; a bare "201" is decimal 201).
int game_init(const char* text);
int game_init(unsigned short address);
// One byte from the port; -1 before game_init or when the system refuses
// port I/O.
int game_read_port(unsigned char& value);
// 0: not initialised.
unsigned short game_address();
