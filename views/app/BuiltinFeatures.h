#pragma once

#include <QString>

// Makes the features of this build known to the shell: the screens of the destinations,
// the sections of the settings window and the application-wide menu commands. A feature
// that joins the build adds its registration here.
namespace BuiltinFeatures {

void registerAll();

// Opens one of the help pages that travel with the application ("index.html",
// "getstarted.html") in the browser; tells whether the page exists.
bool openHelpPage(const QString &page);

}  // namespace BuiltinFeatures
