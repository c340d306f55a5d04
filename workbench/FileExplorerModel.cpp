#include "workbench/FileExplorerModel.h"

#include "base/AtomicFile.h"
#include "base/UserDefaults.h"
#include "workbench/FileExplorerPanels.h"

#include <QClipboard>
#include <QCollator>
#include <QDesktopServices>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QGuiApplication>
#include <QMimeData>
#include <QSet>
#include <QUrl>

namespace {

// Copies a file or a whole folder.
bool copyRecursively(const QString &from, const QString &to, QString *error)
{
    const QFileInfo info(from);
    if (!info.isDir()) {
        if (!QFile::copy(from, to)) {
            *error = QStringLiteral("The file '%1' could not be copied to '%2'.").arg(from, to);
            return false;
        }
        return true;
    }
    // Into itself would copy without end.
    const QString self = QDir::cleanPath(info.absoluteFilePath());
    const QString target = QDir::cleanPath(QFileInfo(to).absoluteFilePath());
    if (target == self || target.startsWith(self + QLatin1Char('/'))) {
        *error = QStringLiteral("The folder '%1' cannot be copied into itself.").arg(info.fileName());
        return false;
    }
    if (!QDir().mkpath(to)) {
        *error = QStringLiteral("The folder '%1' could not be made.").arg(to);
        return false;
    }
    const QDir source(from);
    for (const QString &entry : source.entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot)) {
        if (!copyRecursively(source.filePath(entry), QDir(to).filePath(entry), error))
            return false;
    }
    return true;
}

bool removeItem(const QString &path)
{
    const QFileInfo info(path);
    if (info.isDir() && !info.isSymLink())
        return QDir(path).removeRecursively();
    return QFile::remove(path);
}

}  // namespace

FileExplorerModel::FileExplorerModel(FileExplorerPanels *panels, QObject *parent) : QObject(parent), m_panels(panels)
{
    auto store = UserDefaults::standard();
    m_showHidden = store->value(hiddenKey, false).toBool();
    const QString root = store->value(rootKey).toString();
    if (!root.isEmpty() && QFileInfo(root).isDir())
        setRoot(root);
}

void FileExplorerModel::alert(const QString &text)
{
    if (m_panels)
        m_panels->alert(QStringLiteral("File Explorer"), text);
}

void FileExplorerModel::setFilterText(const QString &text)
{
    m_filterText = text;
    emit treeChanged();
}

void FileExplorerModel::select(const QString &path)
{
    m_selectedItem = path;
    const QFileInfo info(path);
    m_selectedDirectory = info.isDir() ? info.absoluteFilePath() : info.absolutePath();
    if (onSelection)
        onSelection(path);
}

void FileExplorerModel::chooseRoot()
{
    if (!m_panels)
        return;
    if (const std::optional<QString> folder = m_panels->chooseDirectory())
        setRoot(*folder);
}

void FileExplorerModel::setRoot(const QString &folder)
{
    m_root = std::make_shared<FSNode>();
    m_root->path = QFileInfo(folder).absoluteFilePath();
    m_root->isDirectory = true;
    load(*m_root);
    m_selectedDirectory = m_root->path;
    UserDefaults::standard()->setValue(rootKey, m_root->path);
    emit treeChanged();
}

void FileExplorerModel::toggleHidden()
{
    m_showHidden = !m_showHidden;
    UserDefaults::standard()->setValue(hiddenKey, m_showHidden);
    refresh();
}

void FileExplorerModel::load(FSNode &node)
{
    if (node.childrenLoaded)
        return;
    QList<std::shared_ptr<FSNode>> children;
    QDir::Filters filters = QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System;
    if (m_showHidden)
        filters |= QDir::Hidden;
    // An unreadable folder lists as empty, without a word.
    const QFileInfoList entries = QDir(node.path).entryInfoList(filters);
    for (const QFileInfo &entry : entries) {
        auto child = std::make_shared<FSNode>();
        child->path = entry.absoluteFilePath();
        child->isDirectory = entry.isDir();
        child->size = entry.isDir() ? 0 : entry.size();
        child->depthFromRoot = node.depthFromRoot + 1;
        children.append(child);
    }
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::stable_sort(children.begin(), children.end(), [&](const auto &a, const auto &b) {
        if (a->isDirectory != b->isDirectory)
            return a->isDirectory;  // folders first
        return collator.compare(a->name(), b->name()) < 0;
    });
    node.children = children;
    node.childrenLoaded = true;
}

void FileExplorerModel::reload(FSNode &node, const QSet<QString> &openFolders)
{
    node.childrenLoaded = false;
    load(node);
    for (const std::shared_ptr<FSNode> &child : *node.children) {
        if (child->isDirectory && openFolders.contains(child->path))
            reload(*child, openFolders);
    }
}

void FileExplorerModel::refresh()
{
    if (!m_root)
        return;
    // Folders that were read stay read, so what was open stays open.
    QSet<QString> open;
    std::function<void(const FSNode &)> collect = [&](const FSNode &node) {
        if (!node.childrenLoaded || !node.children)
            return;
        open.insert(node.path);
        for (const auto &child : *node.children)
            collect(*child);
    };
    collect(*m_root);
    reload(*m_root, open);
    emit treeChanged();
}

bool FileExplorerModel::keeps(const FSNode &node) const
{
    if (m_filterText.isEmpty() || node.name().contains(m_filterText, Qt::CaseInsensitive))
        return true;
    if (node.children) {
        for (const auto &child : *node.children) {
            if (keeps(*child))
                return true;
        }
    }
    return false;
}

QList<std::shared_ptr<FSNode>> FileExplorerModel::visibleChildren(const FSNode &node) const
{
    QList<std::shared_ptr<FSNode>> shown;
    if (!node.children)
        return shown;
    for (const auto &child : *node.children) {
        if (keeps(*child))
            shown.append(child);
    }
    return shown;
}

std::shared_ptr<FSNode> FileExplorerModel::filteredCopy(const FSNode &node) const
{
    auto copy = std::make_shared<FSNode>(node);
    if (node.children) {
        QList<std::shared_ptr<FSNode>> kept;
        for (const auto &child : *node.children) {
            if (keeps(*child))
                kept.append(filteredCopy(*child));
        }
        copy->children = kept;
    }
    return copy;
}

std::shared_ptr<FSNode> FileExplorerModel::filteredRoot() const
{
    if (!m_root)
        return nullptr;
    if (m_filterText.isEmpty())
        return m_root;
    if (!keeps(*m_root))
        return nullptr;
    return filteredCopy(*m_root);
}

void FileExplorerModel::createFile()
{
    const QString folder = !m_selectedDirectory.isEmpty() ? m_selectedDirectory : (m_root ? m_root->path : QString());
    if (folder.isEmpty()) {
        chooseRoot();
        return;
    }
    if (!m_panels)
        return;
    const std::optional<QString> path =
        m_panels->chooseNewFile(folder, QStringLiteral("new_file.") + preferredNewFileExtension);
    if (!path)
        return;
    if (const std::optional<QString> failed = AtomicFile::write(*path, (onNewFile ? onNewFile() : QString()).toUtf8())) {
        alert(QStringLiteral("Create failed:\n") + *failed);
        return;
    }
    refresh();
    if (onOpenFile)
        onOpenFile(*path);
}

void FileExplorerModel::openFile(const QString &path)
{
    if (onOpenFile) {
        onOpenFile(path);
        return;
    }
    if (!QDesktopServices::openUrl(QUrl::fromLocalFile(path)))
        QDesktopServices::openUrl(QUrl::fromLocalFile(QFileInfo(path).absolutePath()));
}

void FileExplorerModel::renameItem(const QString &path)
{
    if (!m_panels)
        return;
    const QFileInfo info(path);
    const std::optional<QString> name = m_panels->askNewName(info.fileName());
    if (!name || name->trimmed().isEmpty())
        return;
    const QString target = info.dir().filePath(*name);
    if (QFileInfo::exists(target) || !QFile::rename(path, target)) {
        alert(QStringLiteral("'%1' could not be renamed to '%2'.").arg(info.fileName(), *name));
        return;
    }
    m_selectedItem = target;
    refresh();
}

void FileExplorerModel::deleteItem(const QString &path)
{
    if (!m_panels || !m_panels->confirmDelete(QFileInfo(path).fileName()))
        return;
    if (!removeItem(path)) {
        alert(QStringLiteral("'%1' could not be deleted.").arg(QFileInfo(path).fileName()));
        return;
    }
    refresh();
}

void FileExplorerModel::copyItemTo(const QString &path)
{
    if (!m_panels)
        return;
    const QFileInfo info(path);
    const bool folder = info.isDir();
    const QString proposed = folder || info.suffix().isEmpty()
                                 ? info.fileName() + QStringLiteral(" copy")
                                 : info.completeBaseName() + QStringLiteral(" copy.") + info.suffix();
    const std::optional<QString> target = m_panels->chooseCopyTarget(
        info.absolutePath(), folder ? QStringLiteral("Copy folder to...") : QStringLiteral("Copy file to..."), proposed);
    if (!target)
        return;
    QString error;
    if (!copyRecursively(path, *target, &error)) {
        alert(QStringLiteral("Copy failed:\n") + error);
        return;
    }
    refresh();
}

void FileExplorerModel::moveItemTo(const QString &path)
{
    if (!m_panels)
        return;
    const QFileInfo info(path);
    const std::optional<QString> folder = m_panels->chooseMoveFolder(
        info.absolutePath(), QStringLiteral("Select destination folder for \"%1\"").arg(info.fileName()));
    if (!folder)
        return;
    const QString target = QDir(*folder).filePath(info.fileName());
    if (QFileInfo::exists(target)) {
        m_panels->alert(QStringLiteral("File or folder already exists"),
                        QStringLiteral("An item named \"%1\" already exists in the destination.").arg(info.fileName()));
        return;
    }
    if (!QFile::rename(path, target)) {
        alert(QStringLiteral("Move failed:\n") + QStringLiteral("'%1' could not be moved to '%2'.").arg(path, *folder));
        return;
    }
    refresh();
}

void FileExplorerModel::copyToPasteboard(const QStringList &paths, bool cut)
{
    auto *data = new QMimeData;
    QList<QUrl> urls;
    for (const QString &path : paths)
        urls.append(QUrl::fromLocalFile(path));
    data->setUrls(urls);
    data->setData(pboardType, cut ? "1" : "0");
    QGuiApplication::clipboard()->setMimeData(data);
}

void FileExplorerModel::pasteFromPasteboard(const QString &target)
{
    const QMimeData *data = QGuiApplication::clipboard()->mimeData();
    if (!data)
        return;
    const bool cut = data->data(pboardType) == "1";
    const QList<QUrl> urls = data->urls();
    const QFileInfo targetInfo(target);
    const QString destination = targetInfo.isDir() ? targetInfo.absoluteFilePath() : targetInfo.absolutePath();
    QStringList errors;
    bool moved = false;
    for (const QUrl &url : urls) {
        const QFileInfo source(url.toLocalFile());
        if (!source.exists()) {
            errors.append(QStringLiteral("\"%1\" does not exist anymore.").arg(source.fileName()));
            continue;
        }
        if (cut && source.absolutePath() == destination)
            continue;  // already where it would go
        const QString name = uniqueName(destination, source.fileName(), source.isDir());
        const QString to = QDir(destination).filePath(name);
        QString error;
        bool ok = false;
        if (cut) {
            ok = QFile::rename(source.absoluteFilePath(), to);
            moved = moved || ok;
            if (!ok)
                error = QStringLiteral("it could not be moved");
        } else {
            ok = copyRecursively(source.absoluteFilePath(), to, &error);
        }
        if (!ok)
            errors.append(QStringLiteral("Failed for \"%1\": %2").arg(source.fileName(), error));
    }
    if (moved) {
        // A second paste copies; a cut that moved nothing stays a cut.
        auto *again = new QMimeData;
        again->setUrls(urls);
        again->setData(pboardType, "0");
        QGuiApplication::clipboard()->setMimeData(again);
    }
    refresh();
    if (!errors.isEmpty())
        alert(errors.join(u'\n'));
}

QString FileExplorerModel::uniqueName(const QString &folder, const QString &name, bool isDirectory)
{
    const QDir dir(folder);
    if (!QFileInfo::exists(dir.filePath(name)))
        return name;
    const QFileInfo info(name);
    const QString extension = isDirectory ? QString() : info.suffix();
    // ".env": the whole name is the extension, with no stem before it.
    const QString base = extension.isEmpty() ? name : name.left(name.size() - extension.size() - 1);
    const QString tail = extension.isEmpty() ? QString() : u'.' + extension;
    QString candidate = base + QStringLiteral(" copy") + tail;
    for (int n = 2; QFileInfo::exists(dir.filePath(candidate)); ++n)
        candidate = base + QStringLiteral(" copy ") + QString::number(n) + tail;
    return candidate;
}

QString FileExplorerModel::sizeText(qint64 bytes)
{
    double value = double(bytes);
    static const char *const units[] = {"B", "KB", "MB", "GB"};
    int unit = 0;
    while (value >= 1024 && unit < 3) {
        value /= 1024;
        ++unit;
    }
    return QString::asprintf("%.0f %s", value, units[unit]);
}
