// What the X server offers the test, asked once for the machine check: the
// Present extension and a compositing manager.
#pragma once
#include <string>

struct display_facts {
  bool x = false;           // an X display could be opened
  bool present = false;     // the server has the Present extension
  bool compositor = false;  // a compositing manager owns _NET_WM_CM_S<screen>
  std::string compositor_name;  // its window's _NET_WM_NAME, when it has one
};

display_facts display_probe();
