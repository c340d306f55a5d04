#include "tests/views/ViewsTestSupport.h"

#include "app/AppLaunchState.h"
#include "tests/support/TestSupport.h"
#include "views/app/AppMainWindow.h"
#include "tests/support/TestServices.h"

#include <QApplication>

namespace ViewsTestSupport {

AppMainWindow *launchedWindow(std::optional<MenuDestination> destination)
{
    auto *window = new AppMainWindow(TestServices::application().server(), destination);
    window->show();
    TestSupport::waitUntil([&] { return AppLaunchState::shared()->launchFinished() && window->destination(); }, 5000);
    return window;
}

void closeAllWindows()
{
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        widget->close();
        widget->deleteLater();
    }
    TestSupport::spin(20);
}

QMessageBox *openMessageBox()
{
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (auto *box = qobject_cast<QMessageBox *>(widget); box && box->isVisible())
            return box;
    }
    return nullptr;
}

QStringList focusOrder(QWidget *root, const QStringList &names)
{
    QStringList order;
    for (QWidget *widget = root->nextInFocusChain(); widget && widget != root; widget = widget->nextInFocusChain()) {
        if (root->isAncestorOf(widget) && names.contains(widget->objectName()))
            order.append(widget->objectName());
    }
    return order;
}

}  // namespace ViewsTestSupport
