#pragma once

#include "tools/security/HomeFolderAccessNotice.h"

class QMessageBox;
class QWidget;
class AppMainWindow;

// What a window asks once the launch job has finished: permission to show notifications,
// and, once per run, whether the home folder can be read at all.
namespace StartupQuestions {

void ask(AppMainWindow *window);

// The home folder alert: its confirm button copies the command that gives access back.
QMessageBox *showHomeFolderNotice(QWidget *parent, const HomeFolderAccessNotice &notice);

}  // namespace StartupQuestions
