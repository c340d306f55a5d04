#include "views/log/LogPaneView.h"

#include "app/log/LogViewController.h"
#include "diagnostics/LogController.h"
#include "views/common/AlertPresenter.h"
#include "views/common/AppIcons.h"
#include "views/common/FileDialogs.h"
#include "views/log/LogEntryDelegate.h"
#include "views/log/LogEntryWindow.h"
#include "views/log/LogListModel.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QMouseEvent>
#include <QScrollBar>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

LogPaneView::LogPaneView(LogController *controller, QWidget *parent)
    : QWidget(parent), m_controller(controller ? controller : LogController::shared()),
      m_view(LogViewController::of(m_controller))
{
    setObjectName(QStringLiteral("logView"));

    m_search = new QLineEdit(this);
    m_search->setObjectName(QStringLiteral("logSearchField"));
    m_search->setPlaceholderText(QStringLiteral("Search..."));
    m_search->setClearButtonEnabled(true);
    m_search->setMaximumWidth(320);

    m_count = new QLabel(this);
    m_count->setObjectName(QStringLiteral("logCount"));
    m_count->setEnabled(false);

    auto makeButton = [this](const QString &name, const QString &text, const QString &theme, const QString &icon) {
        auto *button = new QToolButton(this);
        button->setObjectName(name);
        button->setIcon(AppIcons::themed(theme, icon));
        button->setToolTip(text);
        button->setAccessibleName(text);
        button->setAutoRaise(true);
        button->setIconSize(QSize(16, 16));
        return button;
    };
    m_clear = makeButton(QStringLiteral("clearLogButton"), QStringLiteral("Clear log entries"),
                         QStringLiteral("edit-clear-all"), QStringLiteral("icons/log-clear.svg"));
    m_export = makeButton(QStringLiteral("exportLogButton"), QStringLiteral("Export log to file"),
                          QStringLiteral("document-save-as"), QStringLiteral("icons/log-export.svg"));
    m_autoScroll = makeButton(QStringLiteral("autoScrollButton"), QString(), QStringLiteral("go-bottom"),
                              QStringLiteral("icons/log-autoscroll.svg"));
    m_autoScroll->setCheckable(true);

    auto *title = new QLabel(QStringLiteral("Log"), this);
    QFont titleFont = title->font();
    titleFont.setBold(true);
    title->setFont(titleFont);

    auto *header = new QHBoxLayout;
    header->setContentsMargins(8, 6, 6, 6);
    header->setSpacing(6);
    header->addWidget(title);
    header->addSpacing(6);
    header->addWidget(m_search, 1);
    header->addWidget(m_count);
    header->addStretch();
    header->addWidget(m_autoScroll);
    header->addWidget(m_export);
    header->addWidget(m_clear);

    m_model = new LogListModel(m_view, this);
    m_delegate = new LogEntryDelegate(this);
    m_list = new QListView(this);
    m_list->setObjectName(QStringLiteral("logList"));
    m_list->setModel(m_model);
    m_list->setItemDelegate(m_delegate);
    m_list->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_list->setUniformItemSizes(false);
    m_list->setResizeMode(QListView::Adjust);
    m_list->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_list->setContextMenuPolicy(Qt::CustomContextMenu);
    m_list->setAlternatingRowColors(true);
    m_list->setFont(m_delegate->rowFont());
    m_list->viewport()->installEventFilter(this);
    m_list->installEventFilter(this);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addLayout(header);
    layout->addWidget(m_list, 1);

    // Keyboard commands of the list, as in its context menu.
    auto *copy = new QAction(QStringLiteral("Copy"), m_list);
    copy->setShortcut(QKeySequence::Copy);
    copy->setShortcutContext(Qt::WidgetShortcut);
    connect(copy, &QAction::triggered, this, &LogPaneView::copySelection);
    m_list->addAction(copy);

    connect(m_search, &QLineEdit::textChanged, this, [this](const QString &text) { m_view->setSearchText(text); });
    connect(m_clear, &QToolButton::clicked, this, &LogPaneView::clearLog);
    connect(m_export, &QToolButton::clicked, this, &LogPaneView::exportLog);
    connect(m_autoScroll, &QToolButton::clicked, this, &LogPaneView::toggleAutoScroll);
    connect(m_list, &QListView::customContextMenuRequested, this, &LogPaneView::showContextMenu);
    connect(m_list, &QListView::activated, this, [this](const QModelIndex &index) {
        showDetails(index.data(LogListModel::IdRole).toUuid());
    });
    connect(m_view, &LogViewController::searchTextChanged, this, &LogPaneView::syncFromController);
    connect(m_view, &LogViewController::autoScrollEnabledChanged, this, &LogPaneView::syncFromController);
    connect(m_model, &QAbstractItemModel::dataChanged, this, [this](const QModelIndex &from, const QModelIndex &to) {
        for (int row = from.row(); row <= to.row(); ++row)
            m_delegate->rowSizeChanged(m_model->index(row));
    });
    connect(m_model, &QAbstractItemModel::rowsInserted, this, &LogPaneView::scrollToNewestIfFollowing);
    connect(m_model, &QAbstractItemModel::modelReset, this, &LogPaneView::scrollToNewestIfFollowing);
    connect(m_model, &QAbstractItemModel::rowsInserted, this, &LogPaneView::updateCount);
    connect(m_model, &QAbstractItemModel::rowsRemoved, this, &LogPaneView::updateCount);
    connect(m_model, &QAbstractItemModel::modelReset, this, &LogPaneView::updateCount);
    connect(m_controller, &LogController::logEntriesChanged, this, &LogPaneView::updateCount);

    AlertPresenter::bind(m_view, this);
    syncFromController();
    updateCount();
}

void LogPaneView::syncFromController()
{
    if (m_search->text() != m_view->searchText())
        m_search->setText(m_view->searchText());
    const bool following = m_view->autoScrollEnabled();
    m_autoScroll->setChecked(following);
    m_autoScroll->setToolTip(autoScrollText());
    m_autoScroll->setAccessibleName(autoScrollText());
}

QString LogPaneView::autoScrollText() const
{
    return m_view->autoScrollEnabled() ? QStringLiteral("Disable Auto-scroll") : QStringLiteral("Enable Auto-scroll");
}

void LogPaneView::updateCount()
{
    const int shown = m_model->rowCount();
    const int total = int(m_view->logEntries().size());
    if (m_view->searchText().isEmpty() || shown == total)
        m_count->setText(total == 1 ? QStringLiteral("1 entry") : QStringLiteral("%1 entries").arg(total));
    else
        m_count->setText(QStringLiteral("%1 of %2 entries").arg(shown).arg(total));
}

void LogPaneView::scrollToNewestIfFollowing()
{
    if (!m_view->autoScrollEnabled() || !m_view->searchText().isEmpty())
        return;
    // After the view has laid the new rows out.
    QTimer::singleShot(0, m_list, [list = m_list] { list->scrollToBottom(); });
}

QSet<QUuid> LogPaneView::selectedLogIDs() const
{
    QSet<QUuid> ids;
    for (const QModelIndex &index : m_list->selectionModel()->selectedIndexes())
        ids.insert(index.data(LogListModel::IdRole).toUuid());
    return ids;
}

void LogPaneView::copySelection()
{
    const QSet<QUuid> ids = selectedLogIDs();
    if (ids.isEmpty())
        return;
    QClipboard *clipboard = QApplication::clipboard();
    clipboard->clear();
    clipboard->setText(m_view->exportText(ids));
}

void LogPaneView::selectAllRows() { m_list->selectAll(); }

void LogPaneView::expandAll()
{
    QSet<QUuid> ids;
    for (int row = 0; row < m_model->rowCount(); ++row)
        ids.insert(m_model->entryAt(row).id);
    m_view->setExpanded(ids, true);
}

void LogPaneView::collapseAll() { m_view->collapseAll(); }

void LogPaneView::toggleExpanded(const QUuid &id) { m_view->toggleExpanded(id); }

void LogPaneView::showDetails(const QUuid &id)
{
    const std::optional<LogEntry> entry = m_view->entry(id);
    if (!entry)
        return;
    auto *window = new LogEntryWindow(*entry, m_view, this->window());
    window->show();
    window->raise();
    window->activateWindow();
    m_detailWindow = window;
}

void LogPaneView::clearLog() { m_view->clear(); }

void LogPaneView::exportLog()
{
    FileDialogs::SaveRequest request;
    request.title = QStringLiteral("Export log to file");
    request.suggestedName = LogViewController::exportFileName();
    request.nameFilter = QStringLiteral("Text files (*.txt)");
    QPointer<LogViewController> controller(m_view);
    FileDialogs::current()->chooseSaveFile(this, request, [controller](const QString &path) {
        if (controller && !path.isEmpty())
            controller->exportToFile(path);
    });
}

void LogPaneView::toggleAutoScroll()
{
    m_view->setAutoScrollEnabled(!m_view->autoScrollEnabled());
    scrollToNewestIfFollowing();
}

void LogPaneView::showContextMenu(const QPoint &position)
{
    const QModelIndex index = m_list->indexAt(position);
    QMenu menu(this);
    if (index.isValid()) {
        const QUuid id = index.data(LogListModel::IdRole).toUuid();
        const bool expanded = index.data(LogListModel::ExpandedRole).toBool();
        menu.addAction(QStringLiteral("Show details"), this, [this, id] { showDetails(id); });
        menu.addAction(expanded ? QStringLiteral("Collapse") : QStringLiteral("Expand"), this,
                       [this, id] { toggleExpanded(id); });
        menu.addSeparator();
    }
    QAction *copy = menu.addAction(QStringLiteral("Copy"), this, &LogPaneView::copySelection);
    copy->setEnabled(m_list->selectionModel()->hasSelection());
    menu.addAction(QStringLiteral("Select All"), this, &LogPaneView::selectAllRows);
    menu.addSeparator();
    menu.addAction(QStringLiteral("Expand All"), this, &LogPaneView::expandAll);
    QAction *collapse = menu.addAction(QStringLiteral("Collapse All"), this, &LogPaneView::collapseAll);
    collapse->setEnabled(m_view->anyExpanded());
    menu.exec(m_list->viewport()->mapToGlobal(position));
}

bool LogPaneView::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_list->viewport() && event->type() == QEvent::MouseButtonPress) {
        auto *mouse = static_cast<QMouseEvent *>(event);
        const QModelIndex index = m_list->indexAt(mouse->position().toPoint());
        if (index.isValid() && mouse->button() == Qt::LeftButton
            && m_delegate->disclosureRect(m_list->visualRect(index)).adjusted(-3, -3, 3, 3).contains(mouse->position().toPoint())) {
            toggleExpanded(index.data(LogListModel::IdRole).toUuid());
            return true;
        }
    }
    if (watched == m_list && event->type() == QEvent::KeyPress) {
        auto *key = static_cast<QKeyEvent *>(event);
        const QModelIndex current = m_list->currentIndex();
        if (current.isValid() && (key->key() == Qt::Key_Right || key->key() == Qt::Key_Left)) {
            const bool expand = key->key() == Qt::Key_Right;
            if (current.data(LogListModel::ExpandedRole).toBool() != expand)
                toggleExpanded(current.data(LogListModel::IdRole).toUuid());
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}
