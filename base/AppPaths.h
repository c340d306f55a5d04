#pragma once

#include <QString>

// Where Kelvara keeps and finds its files. Every location derives from the XDG variables,
// so a test that points XDG_DATA_HOME and XDG_CONFIG_HOME at a temporary folder never
// touches a real user's files.
namespace AppPaths {

// Display name, bundle identifier and version the application presents.
QString displayName();       // "Kelvara"
QString bundleIdentifier();  // "org.tamsel.kelvara"
QString version();

// $XDG_DATA_HOME/Kelvara: the application's container.
QString dataDir();
// $XDG_CONFIG_HOME/Kelvara
QString configDir();
// The exported configuration bundle: $XDG_DATA_HOME/Kelvara/Preferences.
QString preferencesDir();
// The store file: $XDG_DATA_HOME/Kelvara/Kelvara.sqlite.
QString storePath();

// The resources that travel with the application (share/kelvara): KELVARA_RESOURCES when
// set, else share/kelvara beside the executable's bin/ folder, else the source tree.
QString resourcesDir();
// The built-in configuration bundle inside the resources.
QString builtinConfigurationDir();
// The ToolSDK folder inside the resources.
QString toolSdkDir();

}  // namespace AppPaths
