#pragma once

#include "app/MenuCommandContext.h"

class QMessageBox;
class ServerConfigController;
class QWidget;

// The File menu's three configuration commands (and the About screen's import): they ask,
// run the export or import of the server's configuration controller, send a notification
// and show the outcome in an alert. Every box opens without blocking, over the window the
// command came from.
namespace ConfigurationCommands {

void registerCommands(ServerConfigController *server);

void exportConfiguration(ServerConfigController *server, const MenuCommandContext &context);
void importConfiguration(ServerConfigController *server, const MenuCommandContext &context);
void importConfigurationFromFolder(ServerConfigController *server, const MenuCommandContext &context);

// The texts of the questions.
QString importQuestion();
QString importFromFolderQuestion();

}  // namespace ConfigurationCommands
