#pragma once

#include <QSettings>
#include <memory>

// The user defaults: INI files under $XDG_CONFIG_HOME. QSettings instances over the same
// file share one cache inside the process, so a fresh instance per use is cheap and safe
// from any thread. A missing double reads 0.0, a missing integer 0 and a missing bool false.
namespace UserDefaults {

// $XDG_CONFIG_HOME/Kelvara/Kelvara.conf
std::unique_ptr<QSettings> standard();
// $XDG_CONFIG_HOME/group.org.tamsel.apps.conf, shared by the processes of the group.
std::unique_ptr<QSettings> groupSuite();
// Where groupSuite keeps its file, without opening it.
QString groupSuitePath();

}  // namespace UserDefaults
