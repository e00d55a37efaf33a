#include "platform/display_probe.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <cstdio>

display_facts display_probe() {
  display_facts f;
  Display* dpy = XOpenDisplay(nullptr);
  if (!dpy) return f;
  f.x = true;
  int opcode, event, error;
  f.present = XQueryExtension(dpy, "Present", &opcode, &event, &error) != 0;
  char name[32];
  snprintf(name, sizeof name, "_NET_WM_CM_S%d", DefaultScreen(dpy));
  const Window owner = XGetSelectionOwner(dpy, XInternAtom(dpy, name, False));
  if (owner != None) {
    f.compositor = true;
    Atom type;
    int format;
    unsigned long n, rest;
    unsigned char* data = nullptr;
    const Atom utf8 = XInternAtom(dpy, "UTF8_STRING", False);
    if (XGetWindowProperty(dpy, owner, XInternAtom(dpy, "_NET_WM_NAME", False), 0, 64, False, utf8, &type, &format,
                           &n, &rest, &data) == Success &&
        data) {
      if (type == utf8 && format == 8) f.compositor_name.assign(reinterpret_cast<char*>(data), n);
      XFree(data);
    }
  }
  XCloseDisplay(dpy);
  return f;
}
