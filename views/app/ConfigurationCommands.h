#pragma once

#include "app/MenuCommandContext.h"

class QMessageBox;
class QWidget;

// The File menu's three configuration commands (and the About screen's import): they ask,
// run the export or import of the shared configuration controller, send a notification
// and show the outcome in an alert. Every box opens without blocking, over the window the
// command came from.
namespace ConfigurationCommands {

void registerCommands();

void exportConfiguration(const MenuCommandContext &context);
void importConfiguration(const MenuCommandContext &context);
void importConfigurationFromFolder(const MenuCommandContext &context);

// The texts of the questions.
QString importQuestion();
QString importFromFolderQuestion();

}  // namespace ConfigurationCommands
