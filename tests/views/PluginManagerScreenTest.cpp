#include "app/plugins/PluginManagerController.h"
#include "app/security/AccessPanel.h"
#include "base/UserDefaults.h"
#include "diagnostics/LogController.h"
#include "tests/support/TestSupport.h"
#include "tests/views/ViewsTestSupport.h"
#include "tools/plugins/PluginController.h"
#include "app/plugins/PluginTexts.h"
#include "tools/security/BookmarkController.h"
#include "views/app/AppMainWindow.h"
#include "views/app/AppMenuBar.h"
#include "views/app/BuiltinFeatures.h"
#include "views/plugins/PluginManagerView.h"
#include "tests/support/TestServices.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTableWidget>
#include <QTest>
#include <QToolButton>
#include <memory>

using namespace ViewsTestSupport;

namespace {

QString sample(const char *name)
{
    return QStringLiteral(KELVARA_SAMPLE_PLUGIN_DIR "/") + QLatin1String(name);
}

// Every label text inside a widget, for checking what a sheet says.
QStringList texts(QWidget *root)
{
    QStringList all;
    for (QLabel *label : root->findChildren<QLabel *>())
        all.append(label->text());
    return all;
}

class PluginManagerScreen : public ::testing::Test {
protected:
    void SetUp() override
    {
        UserDefaults::standard()->remove(PluginController::registeredPluginsKey);
        security = std::make_unique<BookmarkController>();
        AccessPanel::setPresenter(&panel);
        logger = std::make_unique<LogController>();
        registry = std::make_unique<PluginController>(security.get(), logger.get());
        controller = std::make_unique<PluginManagerController>(registry.get());
        view = new PluginManagerView(controller.get());
        view->resize(900, 600);
        view->show();
    }
    void TearDown() override
    {
        delete view;
        closeAllWindows();
        controller.reset();
        registry.reset();
        AccessPanel::setPresenter(nullptr);
    }

    FakeOpenPanel panel;
    std::unique_ptr<BookmarkController> security;
    std::unique_ptr<LogController> logger;
    std::unique_ptr<PluginController> registry;
    std::unique_ptr<PluginManagerController> controller;
    PluginManagerView *view = nullptr;
};

}  // namespace

TEST_F(PluginManagerScreen, RegisteringGoesThroughThePanelAndTheApprovalSheet)
{
    const QStringList labels = texts(view);
    EXPECT_TRUE(labels.contains(PluginTexts::managerTitle));
    EXPECT_TRUE(labels.contains(QStringLiteral("Native plugin management. Add your own plugins.")));
    EXPECT_TRUE(labels.contains(PluginTexts::managerNote));
    EXPECT_TRUE(labels.filter(QStringLiteral("runs inside Kelvara's own process with your user rights")).size() == 1);
    EXPECT_EQ(view->registerButton()->text(), QStringLiteral("Add Plugin Ctrl+Shift+N"));
    EXPECT_EQ(view->uninstallButton()->text(), QStringLiteral("Uninstall selected plugin Ctrl+D"));
    EXPECT_FALSE(view->uninstallButton()->isEnabled());
    EXPECT_TRUE(view->emptyLabel()->isVisible());
    EXPECT_FALSE(view->loadingLabel()->isVisible());

    const QString library = sample("TextStats.so");
    panel.answer = QUrl::fromLocalFile(library);
    QTest::mouseClick(view->registerButton(), Qt::LeftButton);
    ASSERT_EQ(panel.requests.size(), 1);  // its message is the access panel's, tested there

    // The file is loaded in the background; the sheet follows.
    ASSERT_TRUE(TestSupport::waitUntil([&] { return view->approvalDialog() && view->approvalDialog()->isVisible(); }));
    QDialog *sheet = view->approvalDialog();
    const QStringList said = texts(sheet);
    EXPECT_TRUE(said.contains(QStringLiteral("Review the plugin details before registering")));
    EXPECT_EQ(sheet->findChild<QLabel *>(QStringLiteral("pluginName"))->text(), QStringLiteral("TextStats"));
    EXPECT_EQ(sheet->findChild<QLineEdit *>(QStringLiteral("pluginPath"))->text(), library);
    auto *approve = sheet->findChild<QPushButton *>(QStringLiteral("approvePluginButton"));
    ASSERT_NE(approve, nullptr);
    EXPECT_EQ(approve->text(), QStringLiteral("Approve && Register"));  // shown as "Approve & Register"
    EXPECT_EQ(sheet->findChild<QPushButton *>(QStringLiteral("denyPluginButton"))->text(), QStringLiteral("Deny registration"));

    QTest::mouseClick(approve, Qt::LeftButton);
    EXPECT_TRUE(TestSupport::waitUntil([&] { return view->approvalDialog() == nullptr; }));
    ASSERT_EQ(view->table()->rowCount(), 1);
    EXPECT_EQ(view->table()->item(0, PluginManagerView::NameColumn)->text(), QStringLiteral("TextStats"));
    EXPECT_EQ(view->table()->item(0, PluginManagerView::PathColumn)->text(), library);
    EXPECT_EQ(view->table()->item(0, PluginManagerView::EnabledColumn)->checkState(), Qt::Unchecked);
    EXPECT_FALSE(view->emptyLabel()->isVisible());

    // The same plug-in again: the controller's alert shows over the window.
    panel.answer = QUrl::fromLocalFile(sample("TextStats.bundle"));
    QTest::mouseClick(view->registerButton(), Qt::LeftButton);
    ASSERT_TRUE(TestSupport::waitUntil([] { return openMessageBox() != nullptr; }));
    EXPECT_EQ(openMessageBox()->informativeText(), QStringLiteral("The custom tool plugin TextStats already exist."));
    openMessageBox()->accept();
    EXPECT_EQ(view->table()->rowCount(), 1);
}

TEST_F(PluginManagerScreen, EnablingAsksForTheFileAgainAndUninstallingAsksFirst)
{
    controller->addPlugin(QUrl::fromLocalFile(sample("TextStats.so")));
    controller->approve();
    ASSERT_EQ(view->table()->rowCount(), 1);
    const QUuid id = controller->plugins().first().id;

    // Ticking the switch opens the wizard and leaves the plug-in disabled until a file is picked.
    view->table()->item(0, PluginManagerView::EnabledColumn)->setCheckState(Qt::Checked);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return view->enableWizard() && view->enableWizard()->isVisible(); }));
    EXPECT_EQ(view->table()->item(0, PluginManagerView::EnabledColumn)->checkState(), Qt::Unchecked);
    const QStringList wizard = texts(view->enableWizard());
    EXPECT_TRUE(wizard.contains(QStringLiteral("User Confirmation Required")));
    EXPECT_TRUE(wizard.contains(QStringLiteral("This confirmation is required every time you enable a plugin.")));
    EXPECT_TRUE(wizard.filter(QStringLiteral("runs inside Kelvara's own process with your user rights")).size() == 1);
    for (const QString &line : PluginTexts::wizardModelLines)
        EXPECT_TRUE(wizard.contains(line)) << line.toStdString();

    panel.answer = QUrl::fromLocalFile(sample("TextStats.bundle"));
    QTest::mouseClick(view->enableWizard()->findChild<QPushButton *>(QStringLiteral("choosePluginFileButton")), Qt::LeftButton);
    EXPECT_TRUE(TestSupport::waitUntil([&] { return view->enableWizard() == nullptr; }));
    ASSERT_TRUE(TestSupport::waitUntil([&] { return controller->plugin(id)->isEnabled; }));
    EXPECT_EQ(view->table()->item(0, PluginManagerView::EnabledColumn)->checkState(), Qt::Checked);
    // The panel started beside the registered file.
    EXPECT_EQ(panel.requests.last().directory, QFileInfo(sample("TextStats.so")).absolutePath());

    // Unticking disables at once.
    view->table()->item(0, PluginManagerView::EnabledColumn)->setCheckState(Qt::Unchecked);
    EXPECT_FALSE(controller->plugin(id)->isEnabled);

    // The security sheet from the row's button.
    QTest::mouseClick(view->table()->cellWidget(0, PluginManagerView::InfoColumn), Qt::LeftButton);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return view->securityInfoDialog() != nullptr; }));
    const QStringList info = texts(view->securityInfoDialog());
    EXPECT_TRUE(info.contains(QStringLiteral("Plugin Security Information")));
    EXPECT_TRUE(info.contains(QStringLiteral("Review security and plugin details")));
    EXPECT_TRUE(info.contains(QStringLiteral("\u2022 Each plugin must be authorized before execution")));
    QTest::mouseClick(view->securityInfoDialog()->findChild<QPushButton *>(QStringLiteral("securityInfoDoneButton")), Qt::LeftButton);
    EXPECT_TRUE(TestSupport::waitUntil([&] { return view->securityInfoDialog() == nullptr; }));

    // Uninstall the selected row, after the question.
    view->table()->selectRow(0);
    ASSERT_TRUE(view->uninstallButton()->isEnabled());
    QTest::mouseClick(view->uninstallButton(), Qt::LeftButton);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return view->uninstallConfirmation() != nullptr; }));
    QMessageBox *question = view->uninstallConfirmation();
    EXPECT_EQ(question->windowTitle(), QStringLiteral("Uninstall Plugin"));
    EXPECT_EQ(question->informativeText(), QStringLiteral("Are you sure you want to uninstall 'TextStats'?"));
    QTest::mouseClick(question->findChild<QPushButton *>(QStringLiteral("confirmUninstallButton")), Qt::LeftButton);
    EXPECT_TRUE(TestSupport::waitUntil([&] { return view->table()->rowCount() == 0; }));
    EXPECT_TRUE(controller->plugins().isEmpty());
}

TEST(PluginManagerWindow, ThePluginDestinationShowsTheManagerAndOffersAddPlugin)
{
    BuiltinFeatures::registerAll(TestServices::application());
    FakeOpenPanel panel;  // the user cancels
    AccessPanel::setPresenter(&panel);
    AppMainWindow *window = launchedWindow(MenuDestination::menuPluginManager);
    ASSERT_NE(qobject_cast<PluginManagerView *>(window->currentScreen()), nullptr);
    QAction *newItem = window->appMenuBar()->action(MenuCommand::NewItem);
    EXPECT_TRUE(newItem->isVisible());
    EXPECT_TRUE(newItem->isEnabled());
    EXPECT_EQ(newItem->text(), QStringLiteral("Add Plugin"));
    newItem->trigger();
    ASSERT_EQ(panel.requests.size(), 1);
    EXPECT_EQ(panel.requests.first().directory, QDir::homePath());
    AccessPanel::setPresenter(nullptr);
    closeAllWindows();
}
