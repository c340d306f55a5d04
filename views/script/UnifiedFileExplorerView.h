#pragma once

#include <QSet>
#include <QWidget>
#include <memory>

class FileExplorerModel;
class FileNodeRow;
class QLabel;
class QLineEdit;
class QStackedWidget;
class QToolButton;
class QTreeWidget;
class QTreeWidgetItem;
struct FSNode;

// The folder tree beside the script editor, drawn from a FileExplorerModel: a header with
// the folder choice, "Create file", the hidden files toggle and "Refresh", the filter field,
// and the rows with their menu. Folders are read when they are expanded; the tree keeps
// what was open across every change of the model.
class UnifiedFileExplorerView : public QWidget {
    Q_OBJECT

public:
    explicit UnifiedFileExplorerView(FileExplorerModel *model, QWidget *parent = nullptr);

    FileExplorerModel *model() const { return m_model; }
    QTreeWidget *tree() const { return m_tree; }
    QLineEdit *filterField() const { return m_filter; }
    // The row of a path among the rows drawn, or nullptr.
    FileNodeRow *rowForPath(const QString &path) const;
    // The file's size read again (it was just saved): the row shows what is on disk.
    void refreshSize(const QString &path);
    // The paths of the selected rows, in order.
    QStringList selectedPaths() const;

private:
    void rebuild();
    void addChildren(QTreeWidgetItem *parent, const FSNode &node, bool filtering);
    void expand(QTreeWidgetItem *item);
    void showMenu(const QPoint &at);
    void activate(QTreeWidgetItem *item);

    FileExplorerModel *m_model;
    QStackedWidget *m_stack;
    QLabel *m_rootName;
    QLineEdit *m_filter;
    QToolButton *m_hidden;
    QTreeWidget *m_tree;
    QSet<QString> m_open;
    bool m_rebuilding = false;
};
