#include "views/app/ConfigurationCommands.h"

#include "base/DesktopNotifier.h"
#include "app/MenuCommandDispatcher.h"
#include "app/config/ServerConfigController.h"
#include "base/AbstractController.h"
#include "store/ConfigurationController.h"
#include "views/common/FileDialogs.h"

#include <QApplication>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>

namespace ConfigurationCommands {

namespace {

const QString appendWarning = QStringLiteral("Import appends data to existing records \u2014 nothing will be deleted.");

QWidget *parentOf(const MenuCommandContext &context)
{
    if (auto *widget = qobject_cast<QWidget *>(context.window))
        return widget->window();
    return QApplication::activeWindow();
}

QMessageBox *makeBox(QWidget *parent, QMessageBox::Icon icon, const QString &title, const QString &text)
{
    auto *box = new QMessageBox(parent);
    box->setObjectName(QStringLiteral("configurationAlert"));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setIcon(icon);
    box->setWindowTitle(title);
    box->setText(text);
    box->setWindowModality(parent ? Qt::WindowModal : Qt::ApplicationModal);
    return box;
}

void inform(QWidget *parent, const QString &title, const QString &text, const QString &details = QString())
{
    QMessageBox *box = makeBox(parent, QMessageBox::Information, title, text);
    box->setInformativeText(details);
    box->setStandardButtons(QMessageBox::Ok);
    box->open();
}

// Under an import's message: the counts (when the message has none) and how the server gets them.
QString importDetails(const QString &hint, const ImportResult &result, bool withCounts)
{
    if (!withCounts)
        return hint;
    return QStringLiteral("%1 tools, %2 resources, %3 prompts imported.\n\n%4")
        .arg(result.importedTools)
        .arg(result.importedResources)
        .arg(result.importedPrompts)
        .arg(hint);
}

void fail(QWidget *parent, const QString &text)
{
    QMessageBox *box = makeBox(parent, QMessageBox::Warning, QStringLiteral("Error"), text);
    box->setStandardButtons(QMessageBox::Ok);
    box->open();
}

// Asks with the two buttons; go runs on the first.
void ask(QWidget *parent, const QString &title, const QString &text, const QString &confirm, std::function<void()> go)
{
    QMessageBox *box = makeBox(parent, QMessageBox::Question, title, text);
    QPushButton *yes = box->addButton(confirm, QMessageBox::AcceptRole);
    box->addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole);
    box->setDefaultButton(yes);
    QObject::connect(box, &QMessageBox::buttonClicked, box, [yes, go](QAbstractButton *clicked) {
        if (clicked == yes)
            // After the box has gone, so that what follows opens over the window.
            QMetaObject::invokeMethod(qApp, go, Qt::QueuedConnection);
    });
    box->open();
}

QString importErrorText(const AppError &error)
{
    // A folder that cannot be opened is named by itself, as the open panel's own alert.
    if (error.description == TransferError::invalidPath(ConfigurationController::cannotAccessFolderText).description())
        return ConfigurationController::cannotAccessFolderText;
    return error.description;
}

}  // namespace

QString importQuestion() { return appendWarning + QStringLiteral("\n\nDo you want to continue?"); }

QString importFromFolderQuestion()
{
    return QStringLiteral("Please select a folder that contains the exported configuration sub-folders "
                          "(Tools, Resources, Prompts).\n\n")
           + appendWarning;
}

void exportConfiguration(ServerConfigController *server, const MenuCommandContext &context)
{
    QWidget *parent = parentOf(context);
    if (const auto exported = server->exportService()->exportConfiguration(); !exported) {
        fail(parent, exported.error().description);
        return;
    }
    DesktopNotifier::shared()->notify(QStringLiteral("Export"), ConfigurationController::exportCompletedText,
                                      QStringLiteral("Got it"));
    inform(parent, QStringLiteral("Export"), ConfigurationController::exportCompletedText);
}

void importConfiguration(ServerConfigController *server, const MenuCommandContext &context)
{
    QPointer<QWidget> parent = parentOf(context);
    QPointer<AbstractController> controller = context.controller;
    ask(parent, QStringLiteral("Import Configuration"), importQuestion(), QStringLiteral("Import"), [server, parent, controller] {
        const auto imported = server->exportService()->importBuiltinConfiguration(controller);
        if (!imported) {
            fail(parent, importErrorText(imported.error()));
            return;
        }
        const QString done = ConfigurationController::importCompleteText;
        DesktopNotifier::shared()->notify(QStringLiteral("Import"), done, QStringLiteral("Got it"));
        inform(parent, QStringLiteral("Import"), done, importDetails(server->importHint(), *imported, true));
    });
}

void importConfigurationFromFolder(ServerConfigController *server, const MenuCommandContext &context)
{
    QPointer<QWidget> parent = parentOf(context);
    QPointer<AbstractController> controller = context.controller;
    ask(parent, QStringLiteral("Import Configuration from Folder"), importFromFolderQuestion(),
        QStringLiteral("Select Folder\u2026"), [server, parent, controller] {
            FileDialogs::FolderRequest request;
            request.title = QStringLiteral("Import Configuration from Folder");
            request.prompt = QStringLiteral("Import");
            FileDialogs::current()->chooseFolder(parent, request, [server, parent, controller](const QString &folder) {
                if (folder.isEmpty())
                    return;
                const Result<ImportResult> result =
                    server->exportService()->importConfiguration(folder, controller);
                if (!result) {
                    fail(parent, importErrorText(result.error()));
                    return;
                }
                const QString summary = ConfigurationController::importSummary(*result);
                DesktopNotifier::shared()->notify(QStringLiteral("Import"), summary, QStringLiteral("Got it"));
                inform(parent, QStringLiteral("Import"), summary, importDetails(server->importHint(), *result, false));
            });
        });
}

void registerCommands(ServerConfigController *server)
{
    MenuCommandDispatcher *menus = MenuCommandDispatcher::shared();
    menus->registerHandler(MenuCommand::ExportConfiguration,
                           [server](const MenuCommandContext &context) { exportConfiguration(server, context); });
    menus->registerHandler(MenuCommand::ImportConfiguration,
                           [server](const MenuCommandContext &context) { importConfiguration(server, context); });
    menus->registerHandler(MenuCommand::ImportConfigurationFromFolder, [server](const MenuCommandContext &context) {
        importConfigurationFromFolder(server, context);
    });
}

}  // namespace ConfigurationCommands
