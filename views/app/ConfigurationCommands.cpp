#include "views/app/ConfigurationCommands.h"

#include "base/DesktopNotifier.h"
#include "app/MenuCommandDispatcher.h"
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

void inform(QWidget *parent, const QString &title, const QString &text)
{
    QMessageBox *box = makeBox(parent, QMessageBox::Information, title, text);
    box->setStandardButtons(QMessageBox::Ok);
    box->open();
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

void exportConfiguration(const MenuCommandContext &context)
{
    QWidget *parent = parentOf(context);
    if (const auto exported = ConfigurationController::shared()->exportConfiguration(); !exported) {
        fail(parent, exported.error().description);
        return;
    }
    DesktopNotifier::shared()->notify(QStringLiteral("Export"), ConfigurationController::exportCompletedText,
                                      QStringLiteral("Got it"));
    inform(parent, QStringLiteral("Export"), ConfigurationController::exportCompletedText);
}

void importConfiguration(const MenuCommandContext &context)
{
    QPointer<QWidget> parent = parentOf(context);
    QPointer<AbstractController> controller = context.controller;
    ask(parent, QStringLiteral("Import Configuration"), importQuestion(), QStringLiteral("Import"), [parent, controller] {
        if (const auto imported = ConfigurationController::shared()->importBuiltinConfiguration(controller); !imported) {
            fail(parent, importErrorText(imported.error()));
            return;
        }
        const QString done = ConfigurationController::importCompleteText;
        DesktopNotifier::shared()->notify(QStringLiteral("Import"), done, QStringLiteral("Got it"));
        inform(parent, QStringLiteral("Import"), done);
    });
}

void importConfigurationFromFolder(const MenuCommandContext &context)
{
    QPointer<QWidget> parent = parentOf(context);
    QPointer<AbstractController> controller = context.controller;
    ask(parent, QStringLiteral("Import Configuration from Folder"), importFromFolderQuestion(),
        QStringLiteral("Select Folder\u2026"), [parent, controller] {
            FileDialogs::FolderRequest request;
            request.title = QStringLiteral("Import Configuration from Folder");
            request.prompt = QStringLiteral("Import");
            FileDialogs::current()->chooseFolder(parent, request, [parent, controller](const QString &folder) {
                if (folder.isEmpty())
                    return;
                const Result<ImportResult> result =
                    ConfigurationController::shared()->importConfiguration(folder, controller);
                if (!result) {
                    fail(parent, importErrorText(result.error()));
                    return;
                }
                const QString summary = ConfigurationController::importSummary(*result);
                DesktopNotifier::shared()->notify(QStringLiteral("Import"), summary, QStringLiteral("Got it"));
                inform(parent, QStringLiteral("Import"), summary);
            });
        });
}

void registerCommands()
{
    MenuCommandDispatcher *menus = MenuCommandDispatcher::shared();
    menus->registerHandler(MenuCommand::ExportConfiguration, &exportConfiguration);
    menus->registerHandler(MenuCommand::ImportConfiguration, &importConfiguration);
    menus->registerHandler(MenuCommand::ImportConfigurationFromFolder, &importConfigurationFromFolder);
}

}  // namespace ConfigurationCommands
