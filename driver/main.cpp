#include <allegro.h>

#include "driver/ixmod.h"

int main(int argc, char** argv) { return ixmod_main(argc, argv); }
END_OF_MAIN()
