#pragma once

// The desktop application: the window, its menus and screens. Returns the exit code.
//
// Arguments besides Qt's own: "--new-window" opens a further window (in the Kelvara that
// already runs in this session, if there is one); paths and URLs are open requests; the
// hidden "--screenshot-dir DIR" renders each destination of a fresh start to DIR and ends.
int runDesktop(int argc, char **argv);
