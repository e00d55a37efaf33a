// The reaction evaluation stimulus's module state: the please flag that the
// pause dialogue sets.
#pragma once

void reak_please(int flag);
int reak_getplease();
