#include "views/script/UnifiedFileExplorerView.h"

#include "views/common/AppIcons.h"

#include "views/script/FileNodeRow.h"
#include "workbench/FileExplorerModel.h"

#include <QApplication>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QStackedWidget>
#include <QStyle>
#include <QToolButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <functional>

namespace {

QToolButton *headerButton(QWidget *parent, const char *name, QStyle::StandardPixmap icon, const QString &tip)
{
    auto *button = new QToolButton(parent);
    button->setObjectName(QString::fromLatin1(name));
    button->setIcon(QApplication::style()->standardIcon(icon));
    button->setToolTip(tip);
    button->setAutoRaise(true);
    return button;
}

// Clipboard keys of the tree, taken before the window's menu sees them.
class TreeKeys : public QObject {
public:
    TreeKeys(QTreeWidget *tree, std::function<void(QKeySequence::StandardKey)> act) : QObject(tree), m_act(std::move(act)) {}

    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() != QEvent::ShortcutOverride && event->type() != QEvent::KeyPress)
            return false;
        auto *key = static_cast<QKeyEvent *>(event);
        for (QKeySequence::StandardKey standard : {QKeySequence::Copy, QKeySequence::Cut, QKeySequence::Paste}) {
            if (!key->matches(standard))
                continue;
            event->accept();
            if (event->type() == QEvent::KeyPress)
                m_act(standard);
            return true;
        }
        return false;
    }

private:
    std::function<void(QKeySequence::StandardKey)> m_act;
};

// The node of a path in the real tree, walking only what has been read.
std::shared_ptr<FSNode> findNode(const std::shared_ptr<FSNode> &from, const QString &path)
{
    if (!from || from->path == path)
        return from;
    const QString prefix = from->path.endsWith(QLatin1Char('/')) ? from->path : from->path + QLatin1Char('/');
    if (!from->children || !path.startsWith(prefix))
        return nullptr;
    for (const std::shared_ptr<FSNode> &child : *from->children) {
        if (std::shared_ptr<FSNode> found = findNode(child, path))
            return found;
    }
    return nullptr;
}

}  // namespace

UnifiedFileExplorerView::UnifiedFileExplorerView(FileExplorerModel *model, QWidget *parent) : QWidget(parent), m_model(model)
{
    setObjectName(QStringLiteral("fileExplorer"));

    // Theme icons where the desktop has them, else the bundled SVGs: crisp at any scale.
    QToolButton *choose = headerButton(this, "selectDirectory", QStyle::SP_DirOpenIcon, QStringLiteral("Select Directory"));
    choose->setIcon(AppIcons::themed(QStringLiteral("folder-open"), QStringLiteral("icons/folder-open.svg")));
    QToolButton *create = headerButton(this, "createFile", QStyle::SP_FileIcon, QStringLiteral("Create file"));
    create->setIcon(AppIcons::themed(QStringLiteral("document-new"), QStringLiteral("icons/document-new.svg")));
    m_hidden = headerButton(this, "hideHidden", QStyle::SP_DirIcon, QStringLiteral("Hide hidden files"));
    // A toggle shows what it hides, pressed or not; never a "no" sign.
    m_hidden->setIcon(AppIcons::themed(QStringLiteral("view-hidden"), QStringLiteral("icons/view-hidden.svg")));
    m_hidden->setCheckable(true);
    QToolButton *refresh = headerButton(this, "refresh", QStyle::SP_BrowserReload, QStringLiteral("Refresh"));
    refresh->setIcon(AppIcons::themed(QStringLiteral("view-refresh"), QStringLiteral("icons/view-refresh.svg")));
    m_rootName = new QLabel(this);
    m_rootName->setObjectName(QStringLiteral("rootName"));
    auto *header = new QHBoxLayout;
    header->setContentsMargins(0, 0, 0, 0);
    header->addWidget(choose);
    header->addWidget(m_rootName, 1);
    header->addWidget(create);
    header->addWidget(m_hidden);
    header->addWidget(refresh);

    m_filter = new QLineEdit(this);
    m_filter->setObjectName(QStringLiteral("explorerFilter"));
    m_filter->setPlaceholderText(QStringLiteral("Filter files..."));
    m_filter->setClearButtonEnabled(true);

    m_tree = new QTreeWidget(this);
    m_tree->setObjectName(QStringLiteral("explorerTree"));
    m_tree->setColumnCount(2);
    m_tree->setHeaderHidden(true);
    m_tree->header()->setStretchLastSection(false);
    m_tree->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    m_tree->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    m_tree->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_tree->setContextMenuPolicy(Qt::CustomContextMenu);
    m_tree->setExpandsOnDoubleClick(false);  // activation toggles a folder
    m_tree->installEventFilter(new TreeKeys(m_tree, [this](QKeySequence::StandardKey key) {
        const QStringList paths = selectedPaths();
        if (key == QKeySequence::Paste) {
            // Into the row under the focus (its folder), or the root.
            if (auto *current = static_cast<FileNodeRow *>(m_tree->currentItem()))
                m_model->pasteFromPasteboard(current->path());
            else if (m_model->rootNode())
                m_model->pasteFromPasteboard(m_model->rootNode()->path);
        } else if (!paths.isEmpty()) {
            m_model->copyToPasteboard(paths, key == QKeySequence::Cut);
        }
    }));

    // No root yet: "No folder open", and the folder button between the two halves of the hint.
    auto *empty = new QWidget(this);
    empty->setObjectName(QStringLiteral("noFolderOpen"));
    auto *emptyLayout = new QVBoxLayout(empty);
    emptyLayout->addStretch();
    auto *title = new QLabel(QStringLiteral("No folder open"), empty);
    title->setAlignment(Qt::AlignCenter);
    emptyLayout->addWidget(title);
    // The hint wraps in a narrow tree; the button under it does what it says.
    auto *hintText = new QLabel(QStringLiteral("Click the folder button to open a directory"), empty);
    hintText->setAlignment(Qt::AlignCenter);
    hintText->setWordWrap(true);
    emptyLayout->addWidget(hintText);
    QToolButton *hintButton = headerButton(empty, "openDirectory", QStyle::SP_DirIcon, QStringLiteral("Select Directory"));
    hintButton->setIcon(choose->icon());
    emptyLayout->addWidget(hintButton, 0, Qt::AlignHCenter);
    emptyLayout->addStretch();

    auto *content = new QWidget(this);
    auto *contentLayout = new QVBoxLayout(content);
    contentLayout->setContentsMargins(0, 0, 0, 0);
    contentLayout->addWidget(m_filter);
    contentLayout->addWidget(m_tree, 1);

    m_stack = new QStackedWidget(this);
    m_stack->addWidget(empty);
    m_stack->addWidget(content);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(header);
    layout->addWidget(m_stack, 1);

    connect(choose, &QToolButton::clicked, m_model, &FileExplorerModel::chooseRoot);
    connect(hintButton, &QToolButton::clicked, m_model, &FileExplorerModel::chooseRoot);
    connect(create, &QToolButton::clicked, m_model, &FileExplorerModel::createFile);
    connect(refresh, &QToolButton::clicked, m_model, &FileExplorerModel::refresh);
    connect(m_hidden, &QToolButton::clicked, m_model, &FileExplorerModel::toggleHidden);
    connect(m_filter, &QLineEdit::textChanged, m_model, &FileExplorerModel::setFilterText);
    connect(m_model, &FileExplorerModel::treeChanged, this, &UnifiedFileExplorerView::rebuild);
    connect(m_tree, &QTreeWidget::itemExpanded, this, &UnifiedFileExplorerView::expand);
    connect(m_tree, &QTreeWidget::itemCollapsed, this, [this](QTreeWidgetItem *item) {
        if (!m_rebuilding)
            m_open.remove(static_cast<FileNodeRow *>(item)->path());
    });
    connect(m_tree, &QTreeWidget::itemActivated, this, [this](QTreeWidgetItem *item) { activate(item); });
    connect(m_tree, &QTreeWidget::currentItemChanged, this, [this](QTreeWidgetItem *item) {
        if (item && !m_rebuilding)
            m_model->select(static_cast<FileNodeRow *>(item)->path());
    });
    connect(m_tree, &QWidget::customContextMenuRequested, this, &UnifiedFileExplorerView::showMenu);
    rebuild();
}

FileNodeRow *UnifiedFileExplorerView::rowForPath(const QString &path) const
{
    for (QTreeWidgetItemIterator it(m_tree); *it; ++it) {
        if (static_cast<FileNodeRow *>(*it)->path() == path)
            return static_cast<FileNodeRow *>(*it);
    }
    return nullptr;
}

QStringList UnifiedFileExplorerView::selectedPaths() const
{
    QStringList paths;
    for (QTreeWidgetItem *item : m_tree->selectedItems())
        paths.append(static_cast<FileNodeRow *>(item)->path());
    return paths;
}

void UnifiedFileExplorerView::refreshSize(const QString &path)
{
    std::shared_ptr<FSNode> node = path.isEmpty() ? nullptr : findNode(m_model->rootNode(), path);
    if (!node || node->isDirectory)
        return;
    node->size = QFileInfo(path).size();
    if (FileNodeRow *row = rowForPath(path))
        row->setText(1, FileExplorerModel::sizeText(node->size));
}

void UnifiedFileExplorerView::rebuild()
{
    const std::shared_ptr<FSNode> root = m_model->rootNode();
    m_stack->setCurrentIndex(root ? 1 : 0);
    m_hidden->setChecked(!m_model->showHidden());
    m_rootName->setText(root ? root->name() : QString());
    m_rootName->setToolTip(root ? root->path : QString());
    if (m_filter->text() != m_model->filterText())
        m_filter->setText(m_model->filterText());

    m_rebuilding = true;
    const QString selected = m_model->selectedItemPath();
    m_tree->clear();
    if (root) {
        const bool filtering = !m_model->filterText().isEmpty();
        if (const std::shared_ptr<FSNode> shown = filtering ? m_model->filteredRoot() : root)
            addChildren(m_tree->invisibleRootItem(), *shown, filtering);
    }
    if (FileNodeRow *row = selected.isEmpty() ? nullptr : rowForPath(selected))
        m_tree->setCurrentItem(row);
    m_rebuilding = false;
}

void UnifiedFileExplorerView::addChildren(QTreeWidgetItem *parent, const FSNode &node, bool filtering)
{
    if (!node.children)
        return;
    // The filtered copy already holds only what passes; the real tree still needs the filter.
    const QList<std::shared_ptr<FSNode>> children = filtering ? *node.children : m_model->visibleChildren(node);
    for (const std::shared_ptr<FSNode> &child : children) {
        auto *row = new FileNodeRow(child);
        parent->addChild(row);
        if (!child->isDirectory)
            continue;
        if (child->childrenLoaded && (filtering || m_open.contains(child->path))) {
            addChildren(row, *child, filtering);
            row->setExpanded(true);
        }
        if (child->childrenLoaded && child->children && child->children->isEmpty())
            row->setChildIndicatorPolicy(QTreeWidgetItem::DontShowIndicatorWhenChildless);
    }
}

void UnifiedFileExplorerView::expand(QTreeWidgetItem *item)
{
    if (m_rebuilding)
        return;
    auto *row = static_cast<FileNodeRow *>(item);
    m_open.insert(row->path());
    if (row->childCount() > 0)
        return;
    // The filter's copy is not the tree: read the real node of that path.
    std::shared_ptr<FSNode> node = findNode(m_model->rootNode(), row->path());
    if (!node)
        node = row->node();
    m_model->load(*node);
    m_rebuilding = true;
    addChildren(row, *node, false);
    if (row->childCount() == 0)
        row->setChildIndicatorPolicy(QTreeWidgetItem::DontShowIndicatorWhenChildless);
    m_rebuilding = false;
}

void UnifiedFileExplorerView::activate(QTreeWidgetItem *item)
{
    auto *row = static_cast<FileNodeRow *>(item);
    if (row->node()->isDirectory)
        row->setExpanded(!row->isExpanded());
    else
        m_model->openFile(row->path());
}

void UnifiedFileExplorerView::showMenu(const QPoint &at)
{
    auto *row = static_cast<FileNodeRow *>(m_tree->itemAt(at));
    if (!row)
        return;
    const QString path = row->path();
    m_model->select(path);
    QMenu menu(this);
    menu.addAction(QStringLiteral("Open"), this, [this, row] { activate(row); });
    if (row->node()->isDirectory)
        menu.addAction(QStringLiteral("Switch to"), this, [this, path] { m_model->setRoot(path); });
    menu.addSeparator();
    menu.addAction(QStringLiteral("Rename"), this, [this, path] { m_model->renameItem(path); });
    menu.addAction(QStringLiteral("Copy"), this, [this, path] { m_model->copyItemTo(path); });
    menu.addAction(QStringLiteral("Move"), this, [this, path] { m_model->moveItemTo(path); });
    menu.addSeparator();
    menu.addAction(QStringLiteral("Delete"), this, [this, path] { m_model->deleteItem(path); });
    menu.exec(m_tree->viewport()->mapToGlobal(at));
}
