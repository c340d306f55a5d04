#pragma once

#include <QString>

class ApplicationServices;

// Makes the features of this build known to the shell: the screens of the destinations,
// the sections of the settings window and the application-wide menu commands. A feature
// that joins the build adds its registration here. Each screen is handed the services it
// needs from the application's composition root, which outlives every window.
namespace BuiltinFeatures {

void registerAll(ApplicationServices &services);

// Opens one of the help pages that travel with the application ("index.html",
// "getstarted.html") in the browser; tells whether the page exists.
bool openHelpPage(const QString &page);

}  // namespace BuiltinFeatures
