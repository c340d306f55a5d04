#pragma once

#include "app/ApplicationServices.h"

// The application's services for a test program that shows the application's windows and
// screens: one set over the test's own data folders, made on first use and kept to the
// end of the program, as the desktop keeps its own for its whole run.
namespace TestServices {

inline ApplicationServices &application()
{
    static ApplicationServices *services = new ApplicationServices;
    return *services;
}

}  // namespace TestServices
