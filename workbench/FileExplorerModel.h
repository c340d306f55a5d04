#pragma once

#include "workbench/FSNode.h"

#include <QObject>
#include <QStringList>
#include <functional>

class FileExplorerPanels;

// The folder tree beside the script editor: one root, read lazily, a filter, hidden files on
// demand, and a small file manager's operations (new, open, rename, copy to, move to,
// delete, and cut, copy and paste over the clipboard). The script screen plugs in with three
// callbacks. Main thread only.
class FileExplorerModel : public QObject {
    Q_OBJECT

public:
    static inline const QString rootKey = QStringLiteral("brantor.fileExplorer.rootPath");
    static inline const QString hiddenKey = QStringLiteral("brantor.fileExplorer.showHidden");
    static inline const QString pboardType = QStringLiteral("application/x-kelvara-file-cut");

    explicit FileExplorerModel(FileExplorerPanels *panels = nullptr, QObject *parent = nullptr);

    void setPanels(FileExplorerPanels *panels) { m_panels = panels; }
    std::shared_ptr<FSNode> rootNode() const { return m_root; }
    bool showHidden() const { return m_showHidden; }
    QString filterText() const { return m_filterText; }
    void setFilterText(const QString &text);
    QString selectedItemPath() const { return m_selectedItem; }
    QString selectedDirectory() const { return m_selectedDirectory; }
    void select(const QString &path);

    std::function<void(const QString &)> onOpenFile;
    std::function<QString()> onNewFile;
    std::function<void(const QString &)> onSelection;
    QString preferredNewFileExtension = QStringLiteral("txt");

    void chooseRoot();
    void setRoot(const QString &folder);
    void toggleHidden();
    void refresh();
    // Reads a folder's children once.
    void load(FSNode &node);
    // The children that pass the filter, in order.
    QList<std::shared_ptr<FSNode>> visibleChildren(const FSNode &node) const;
    // A copy of the tree with only what passes the filter; nullptr when nothing does.
    std::shared_ptr<FSNode> filteredRoot() const;

    void createFile();
    void openFile(const QString &path);
    void renameItem(const QString &path);
    void deleteItem(const QString &path);
    void copyItemTo(const QString &path);
    void moveItemTo(const QString &path);
    void copyToPasteboard(const QStringList &paths, bool cut);
    void pasteFromPasteboard(const QString &target);

    // "a.txt" → "a copy.txt", "a copy 2.txt", …; a folder "src" → "src copy".
    static QString uniqueName(const QString &folder, const QString &name, bool isDirectory);
    // "512 B", "2 KB", up to GB.
    static QString sizeText(qint64 bytes);

signals:
    void treeChanged();

private:
    void reload(FSNode &node, const QSet<QString> &openFolders);
    bool keeps(const FSNode &node) const;
    std::shared_ptr<FSNode> filteredCopy(const FSNode &node) const;
    void alert(const QString &text);

    FileExplorerPanels *m_panels;
    std::shared_ptr<FSNode> m_root;
    bool m_showHidden = false;
    QString m_filterText;
    QString m_selectedItem;
    QString m_selectedDirectory;
};
