// tarnvel: the desktop converter. One window lists the jobs; recordings are
// added with its Add button, on the command line, or by the suite.
//
//   tarnvel [PATH]     an args.ini or a batch file, added at once
//   tarnvel '*$$*'     waits for the suite's commands
//   tarnvel            opens the Add file dialog
#include "ui/qt/DesktopApp.h"

int main(int argc, char** argv) { return tarnvel::qt::RunDesktop(argc, argv); }
