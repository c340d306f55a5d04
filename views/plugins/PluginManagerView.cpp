#include "views/plugins/PluginManagerView.h"

#include "views/common/LayoutMetrics.h"
#include "app/plugins/PluginManagerController.h"
#include "app/plugins/PluginTexts.h"
#include "views/common/AlertPresenter.h"
#include "views/common/CommandButton.h"
#include "views/plugins/PluginApprovalDialog.h"
#include "views/plugins/PluginEnableWizard.h"
#include "views/plugins/PluginSecurityInfoDialog.h"
#include "views/plugins/PluginSheetParts.h"

#include <QApplication>
#include <QHBoxLayout>
#include <QHash>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTableWidget>
#include <QToolButton>
#include <QVBoxLayout>

namespace {

enum class Sheet { Approval, SecurityInfo, EnableWizard, Uninstall };

// The sheets on screen, one of each kind per controller, whichever view opened it.
QHash<QPair<const PluginManagerController *, int>, QPointer<QDialog>> &openSheets()
{
    static QHash<QPair<const PluginManagerController *, int>, QPointer<QDialog>> sheets;
    return sheets;
}

QPointer<QDialog> &sheetSlot(const PluginManagerController *controller, Sheet sheet)
{
    return openSheets()[qMakePair(controller, int(sheet))];
}

QDialog *openSheet(const PluginManagerController *controller, Sheet sheet)
{
    return openSheets().value(qMakePair(controller, int(sheet)));
}

}  // namespace

PluginManagerView::PluginManagerView(PluginManagerController *controller, QWidget *parent)
    : DestinationScreen(parent), m_controller(controller)
{
    setObjectName(QStringLiteral("pluginManagerView"));

    auto *title = PluginSheetParts::heading(PluginTexts::managerTitle, this, 1.5);
    title->setObjectName(QStringLiteral("pluginManagerTitle"));
    auto *subtitle = new QLabel(PluginTexts::managerSubtitle, this);
    subtitle->setObjectName(QStringLiteral("pluginManagerSubtitle"));

    // The File menu's "Add Plugin" owns the keys; a second owner would make them ambiguous.
    m_register = new QPushButton(CommandButton::label(PluginTexts::registerButton, QKeySequence(QStringLiteral("Shift+Ctrl+N"))), this);
    m_register->setObjectName(QStringLiteral("registerPluginButton"));
    m_register->setAutoDefault(false);
    m_uninstall = new CommandButton(QStringLiteral("uninstallPluginButton"), PluginTexts::uninstallButton, QKeySequence(Qt::CTRL | Qt::Key_D), this);
    auto *buttons = new QHBoxLayout;
    buttons->setSpacing(8);
    buttons->addWidget(m_register);
    buttons->addWidget(m_uninstall);
    buttons->addStretch();

    m_loading = new QLabel(PluginTexts::loading, this);
    m_loading->setObjectName(QStringLiteral("pluginLoadingLabel"));
    m_empty = new QLabel(PluginTexts::noPlugins, this);
    m_empty->setObjectName(QStringLiteral("pluginEmptyLabel"));
    m_empty->setEnabled(false);

    m_table = new QTableWidget(0, 6, this);
    m_table->setObjectName(QStringLiteral("pluginTable"));
    m_table->setHorizontalHeaderLabels({QStringLiteral("Enabled"), QStringLiteral("Name"), QStringLiteral("Version"),
                                        QStringLiteral("Author"), QStringLiteral("Path"), QString()});
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->verticalHeader()->hide();
    m_table->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    m_table->horizontalHeader()->setSectionResizeMode(PathColumn, QHeaderView::Stretch);

    auto *note = PluginSheetParts::wrapped(PluginTexts::managerNote, this);
    note->setObjectName(QStringLiteral("pluginManagerNote"));
    auto *warning = PluginSheetParts::wrapped(PluginTexts::inProcessWarning, this);
    warning->setObjectName(QStringLiteral("pluginWarning"));

    auto *layout = new QVBoxLayout(this);
    LayoutMetrics::applyToScreen(layout);
    layout->addWidget(title);
    layout->addWidget(subtitle);
    layout->addLayout(buttons);
    layout->addWidget(m_loading);
    layout->addWidget(m_table, 1);
    layout->addWidget(m_empty);
    layout->addWidget(note);
    layout->addWidget(warning);

    connect(m_register, &QPushButton::clicked, this, [this] { m_controller->chooseAndAddPlugin(); });
    connect(m_uninstall, &QPushButton::clicked, this, [this] {
        if (const std::optional<Plugin> plugin = selectedPlugin())
            m_controller->requestUninstall(*plugin);
    });
    connect(m_table, &QTableWidget::itemChanged, this, [this](QTableWidgetItem *item) {
        if (!m_filling && item->column() == EnabledColumn)
            rowSwitched(item->row());
    });
    connect(m_table, &QTableWidget::cellDoubleClicked, this, [this](int row, int) {
        if (row >= 0 && row < m_rows.size())
            m_controller->showSecurityInfo(m_rows.at(row));
    });
    connect(m_table, &QTableWidget::itemSelectionChanged, this, &PluginManagerView::refreshState);

    connect(m_controller, &PluginManagerController::pluginsChanged, this, &PluginManagerView::rebuild);
    connect(m_controller, &PluginManagerController::isLoadingChanged, this, &PluginManagerView::refreshState);
    for (auto signal : {&PluginManagerController::showApprovalDialogChanged, &PluginManagerController::showingSecurityInfoChanged,
                        &PluginManagerController::showingEnableWizardChanged, &PluginManagerController::showDeleteConfirmDialogChanged})
        connect(m_controller, signal, this, &PluginManagerView::presentSheets);
    AlertPresenter::bind(m_controller, this);

    rebuild();
    // A sheet whose flag was set before this screen existed still shows.
    QMetaObject::invokeMethod(this, &PluginManagerView::presentSheets, Qt::QueuedConnection);
}

PluginManagerView::~PluginManagerView() = default;

AbstractController *PluginManagerView::activeController() const { return m_controller; }

bool PluginManagerView::handlesCommand(MenuCommand command) const { return command == MenuCommand::NewItem; }

void PluginManagerView::performCommand(MenuCommand command)
{
    if (command == MenuCommand::NewItem)
        m_controller->chooseAndAddPlugin();
}

std::optional<Plugin> PluginManagerView::selectedPlugin() const
{
    const QList<QTableWidgetItem *> selected = m_table->selectedItems();
    if (selected.isEmpty())
        return std::nullopt;
    const int row = selected.first()->row();
    if (row < 0 || row >= m_rows.size())
        return std::nullopt;
    return m_rows.at(row);
}

QDialog *PluginManagerView::approvalDialog() const { return openSheet(m_controller, Sheet::Approval); }
QDialog *PluginManagerView::securityInfoDialog() const { return openSheet(m_controller, Sheet::SecurityInfo); }
QDialog *PluginManagerView::enableWizard() const { return openSheet(m_controller, Sheet::EnableWizard); }
QMessageBox *PluginManagerView::uninstallConfirmation() const
{
    return qobject_cast<QMessageBox *>(openSheet(m_controller, Sheet::Uninstall));
}

void PluginManagerView::rebuild()
{
    const std::optional<Plugin> selected = selectedPlugin();
    m_rows = m_controller->plugins();
    m_filling = true;
    m_table->setRowCount(int(m_rows.size()));
    for (int row = 0; row < m_rows.size(); ++row) {
        const Plugin &plugin = m_rows.at(row);
        const PluginDescriptor descriptor = plugin.toolDescriptor.value_or(PluginDescriptor{});
        auto *enabled = new QTableWidgetItem;
        enabled->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
        enabled->setCheckState(plugin.isEnabled ? Qt::Checked : Qt::Unchecked);
        enabled->setToolTip(plugin.isEnabled ? QStringLiteral("Enabled for this run; untick to disable")
                                             : QStringLiteral("Tick to enable: you will confirm the plugin file"));
        m_table->setItem(row, EnabledColumn, enabled);
        auto text = [this, row](int column, const QString &value) {
            auto *item = new QTableWidgetItem(value);
            item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
            item->setToolTip(value);
            m_table->setItem(row, column, item);
        };
        text(NameColumn, plugin.displayName());
        text(VersionColumn, descriptor.version);
        text(AuthorColumn, descriptor.author);
        text(PathColumn, plugin.path);
        auto *info = new QToolButton(m_table);
        info->setObjectName(QStringLiteral("pluginInfoButton"));
        info->setText(QStringLiteral("Info"));
        info->setToolTip(PluginTexts::securityTitle);
        connect(info, &QToolButton::clicked, this, [this, plugin] { m_controller->showSecurityInfo(plugin); });
        m_table->setCellWidget(row, InfoColumn, info);
        if (selected && selected->id == plugin.id)
            m_table->selectRow(row);
    }
    m_filling = false;
    refreshState();
}

void PluginManagerView::refreshState()
{
    const bool loading = m_controller->isLoading();
    m_loading->setVisible(loading);
    m_empty->setVisible(!loading && m_rows.isEmpty());
    m_uninstall->setEnabled(selectedPlugin().has_value());
    emit commandStateChanged();
}

void PluginManagerView::rowSwitched(int row)
{
    if (row < 0 || row >= m_rows.size())
        return;
    const Plugin plugin = m_rows.at(row);
    const bool wanted = m_table->item(row, EnabledColumn)->checkState() == Qt::Checked;
    // The switch shows the controller's state; enabling goes through the wizard first.
    m_filling = true;
    m_table->item(row, EnabledColumn)->setCheckState(plugin.isEnabled ? Qt::Checked : Qt::Unchecked);
    m_filling = false;
    if (wanted && !plugin.isEnabled)
        m_controller->showEnableWizard(plugin);
    else if (!wanted && plugin.isEnabled)
        m_controller->togglePlugin(plugin);
}

void PluginManagerView::presentSheets()
{
    // The window this screen is in when it is on screen, else whatever window is in front.
    QWidget *parent = isVisible() ? window() : QApplication::activeWindow();
    auto present = [this, parent](Sheet sheet, bool wanted, const std::function<QDialog *()> &make) {
        QPointer<QDialog> &slot = sheetSlot(m_controller, sheet);
        if (!wanted) {
            if (slot) {
                slot->hide();
                slot->deleteLater();
            }
            slot.clear();
            return;
        }
        if (slot)
            return;
        QDialog *dialog = make();
        if (!dialog)
            return;
        dialog->setAttribute(Qt::WA_DeleteOnClose);
        dialog->setWindowModality(parent ? Qt::WindowModal : Qt::ApplicationModal);
        slot = dialog;
        dialog->open();
        PluginSheetParts::fitHeight(dialog);
    };

    present(Sheet::Approval, m_controller->showApprovalDialog(), [this, parent]() -> QDialog * {
        const std::optional<Plugin> plugin = m_controller->pendingPlugin();
        return plugin ? new PluginApprovalDialog(m_controller, *plugin, parent) : nullptr;
    });
    present(Sheet::SecurityInfo, m_controller->showingSecurityInfo(), [this, parent]() -> QDialog * {
        const std::optional<Plugin> plugin = m_controller->securityInfoPlugin();
        return plugin ? new PluginSecurityInfoDialog(m_controller, *plugin, parent) : nullptr;
    });
    present(Sheet::EnableWizard, m_controller->showingEnableWizard(), [this, parent]() -> QDialog * {
        const std::optional<Plugin> plugin = m_controller->enableWizardPlugin();
        return plugin ? new PluginEnableWizard(m_controller, *plugin, parent) : nullptr;
    });
    present(Sheet::Uninstall, m_controller->showDeleteConfirmDialog(), [this, parent]() -> QDialog * {
        const std::optional<Plugin> plugin = m_controller->pluginToDelete();
        if (!plugin)
            return nullptr;
        auto *box = new QMessageBox(parent);
        box->setObjectName(QStringLiteral("uninstallPluginConfirmation"));
        box->setIcon(QMessageBox::Warning);
        box->setWindowTitle(PluginTexts::uninstallTitle);
        box->setText(PluginTexts::uninstallTitle);
        box->setInformativeText(PluginTexts::uninstallQuestion(plugin->displayName()));
        QPushButton *uninstall = box->addButton(QStringLiteral("Uninstall"), QMessageBox::DestructiveRole);
        uninstall->setObjectName(QStringLiteral("confirmUninstallButton"));
        box->addButton(QMessageBox::Cancel);
        box->setDefaultButton(QMessageBox::Cancel);
        QPointer<PluginManagerController> controller(m_controller);
        connect(box, &QMessageBox::finished, box, [box, uninstall, controller] {
            if (!controller)
                return;
            if (box->clickedButton() == uninstall)
                controller->confirmUninstall();
            else
                controller->cancelUninstall();
        });
        return box;
    });
}
