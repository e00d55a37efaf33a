// Reading text files as a lab writes them on any system: a line that ends
// in "\r\n" (a file saved on Windows) reads as one ending in "\n".
#pragma once
#include <cstdio>

// fgets that drops the carriage return before a line's newline.
char* text_gets(char* buf, int size, FILE* f);
