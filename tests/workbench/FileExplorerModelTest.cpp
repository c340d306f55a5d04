#include "tests/support/TestSupport.h"
#include "workbench/FileExplorerModel.h"
#include "workbench/FileExplorerPanels.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>

namespace {

struct FakeExplorerPanels : FileExplorerPanels {
    std::optional<QString> newName;
    QStringList alerts;
    std::optional<QString> chooseDirectory() override { return std::nullopt; }
    std::optional<QString> chooseNewFile(const QString &folder, const QString &name) override { return folder + u'/' + name; }
    std::optional<QString> askNewName(const QString &) override { return newName; }
    bool confirmDelete(const QString &) override { return true; }
    std::optional<QString> chooseCopyTarget(const QString &, const QString &, const QString &) override { return std::nullopt; }
    std::optional<QString> chooseMoveFolder(const QString &, const QString &) override { return std::nullopt; }
    void alert(const QString &title, const QString &text) override { alerts.append(title + u'|' + text); }
};

void touch(const QString &path, const QByteArray &bytes = "x")
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(bytes);
}

QStringList names(const QList<std::shared_ptr<FSNode>> &nodes)
{
    QStringList list;
    for (const auto &node : nodes)
        list.append(node->name());
    return list;
}

}  // namespace

TEST(FileExplorer, TreeFilterHiddenFilesAndNames)
{
    const QString root = TestSupport::makeTempDir();
    touch(root + "/b.js");
    touch(root + "/A.txt", QByteArray(2048, 'x'));
    touch(root + "/.env");
    touch(root + "/src/inner/deep.js");
    FakeExplorerPanels panels;
    FileExplorerModel explorer(&panels);
    explorer.setRoot(root);
    // Folders first, then by name whatever the case; hidden files only when asked.
    EXPECT_EQ(names(*explorer.rootNode()->children), QStringList({"src", "A.txt", "b.js"}));
    EXPECT_EQ(FileExplorerModel::sizeText(explorer.rootNode()->children->at(1)->size), "2 KB");
    EXPECT_EQ(FileExplorerModel::sizeText(1023), "1023 B");
    explorer.toggleHidden();
    EXPECT_EQ(names(*explorer.rootNode()->children), QStringList({"src", ".env", "A.txt", "b.js"}));

    // The filter sees only what was read: deep.js is found once src/inner is open.
    explorer.setFilterText(QStringLiteral("DEEP"));
    EXPECT_EQ(explorer.filteredRoot(), nullptr);
    FSNode &src = *explorer.rootNode()->children->at(0);
    explorer.load(src);
    explorer.load(*src.children->at(0));
    ASSERT_NE(explorer.filteredRoot(), nullptr);
    EXPECT_EQ(names(explorer.visibleChildren(*explorer.rootNode())), QStringList({"src"}));
    // A refresh keeps open folders open.
    explorer.setFilterText(QString());
    touch(root + "/src/inner/new.js");
    explorer.refresh();
    EXPECT_EQ(names(*explorer.rootNode()->children->at(0)->children->at(0)->children), QStringList({"deep.js", "new.js"}));

    // Unique names in a destination.
    touch(root + "/a.txt");
    EXPECT_EQ(FileExplorerModel::uniqueName(root, "a.txt", false), "a copy.txt");
    touch(root + "/a copy.txt");
    EXPECT_EQ(FileExplorerModel::uniqueName(root, "a.txt", false), "a copy 2.txt");
    EXPECT_EQ(FileExplorerModel::uniqueName(root, "src", true), "src copy");
    EXPECT_EQ(FileExplorerModel::uniqueName(root, "fresh.js", false), "fresh.js");
}

TEST(FileExplorer, CopyCutPasteRenameAndDelete)
{
    const QString root = TestSupport::makeTempDir();
    touch(root + "/a.txt");
    touch(root + "/gone.txt");
    touch(root + "/src/main.js");
    QDir().mkpath(root + "/out");
    FakeExplorerPanels panels;
    FileExplorerModel explorer(&panels);
    explorer.setRoot(root);

    // a.txt pasted twice into its own folder; a folder into its own folder.
    explorer.copyToPasteboard({root + "/a.txt", root + "/src"}, false);
    explorer.pasteFromPasteboard(root + "/a.txt");
    explorer.pasteFromPasteboard(root);
    EXPECT_TRUE(QFile::exists(root + "/a copy.txt"));
    EXPECT_TRUE(QFile::exists(root + "/a copy 2.txt"));
    EXPECT_TRUE(QFile::exists(root + "/src copy/main.js"));
    // Into itself: refused with a line of its own instead of copying without end.
    explorer.copyToPasteboard({root + "/src"}, false);
    explorer.pasteFromPasteboard(root + "/src");
    ASSERT_EQ(panels.alerts.size(), 1);
    EXPECT_EQ(panels.alerts.takeFirst(), "File Explorer|Failed for \"src\": The folder 'src' cannot be copied into itself.");
    EXPECT_FALSE(QFileInfo::exists(root + "/src/src"));

    // A cut into the same folder changes nothing; elsewhere it moves, and then copies.
    explorer.copyToPasteboard({root + "/a.txt", root + "/gone.txt"}, true);
    QFile::remove(root + "/gone.txt");
    explorer.pasteFromPasteboard(root);
    EXPECT_TRUE(QFile::exists(root + "/a.txt"));
    ASSERT_EQ(panels.alerts.size(), 1);
    EXPECT_EQ(panels.alerts.first(), "File Explorer|\"gone.txt\" does not exist anymore.");
    explorer.pasteFromPasteboard(root + "/out");
    EXPECT_FALSE(QFile::exists(root + "/a.txt"));
    EXPECT_TRUE(QFile::exists(root + "/out/a.txt"));
    touch(root + "/a.txt");  // the second paste copies now
    explorer.pasteFromPasteboard(root + "/out");
    EXPECT_TRUE(QFile::exists(root + "/out/a copy.txt"));

    // Rename onto an existing name is refused with an alert; to a free one it goes.
    panels.alerts.clear();
    panels.newName = QStringLiteral("a copy.txt");
    explorer.renameItem(root + "/a.txt");
    EXPECT_TRUE(QFile::exists(root + "/a.txt"));
    EXPECT_EQ(panels.alerts.size(), 1);
    panels.newName = QStringLiteral("b.txt");
    explorer.renameItem(root + "/a.txt");
    EXPECT_TRUE(QFile::exists(root + "/b.txt"));
    EXPECT_EQ(explorer.selectedItemPath(), root + "/b.txt");

    explorer.deleteItem(root + "/src copy");
    EXPECT_FALSE(QFileInfo::exists(root + "/src copy"));

    // A new file gets the callback's text and is opened.
    explorer.preferredNewFileExtension = QStringLiteral("js");
    explorer.onNewFile = [] { return QStringLiteral("// new\n"); };
    QString opened;
    explorer.onOpenFile = [&](const QString &path) { opened = path; };
    explorer.select(root + "/out");
    explorer.createFile();
    EXPECT_EQ(opened, root + "/out/new_file.js");
    QFile created(opened);
    ASSERT_TRUE(created.open(QIODevice::ReadOnly));
    EXPECT_EQ(created.readAll(), "// new\n");
}
