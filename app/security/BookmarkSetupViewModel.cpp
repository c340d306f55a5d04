#include "app/security/BookmarkSetupViewModel.h"

#include "app/security/AccessPanel.h"
#include "app/security/OpenPanelPresenter.h"
#include "app/security/OpenPanelRequest.h"
#include "diagnostics/LogController.h"
#include "tools/security/BookmarkController.h"

#include <QDir>
#include <QPointer>

#include <algorithm>

BookmarkSetupViewModel::BookmarkSetupViewModel(BookmarkController *controller, QObject *parent)
    : QObject(parent), m_controller(controller ? controller : BookmarkController::shared())
{
    open();
}

void BookmarkSetupViewModel::setCurrentPage(int page)
{
    page = std::clamp(page, introductionPage, draftsPage);
    if (page == m_currentPage)
        return;
    m_currentPage = page;
    emit currentPageChanged();
}

void BookmarkSetupViewModel::nextPage() { setCurrentPage(m_currentPage + 1); }

void BookmarkSetupViewModel::previousPage() { setCurrentPage(m_currentPage - 1); }

void BookmarkSetupViewModel::open()
{
    QList<BookmarkDraft> drafts;
    for (const BookmarkInfo &info : m_controller->bookmarks())
        drafts.append(BookmarkDraft{QUuid::createUuid(), info.url, info.displayName, true});
    setDrafts(drafts);
    setUnsaved(false);
}

void BookmarkSetupViewModel::addLocation()
{
    OpenPanelPresenter *presenter = AccessPanel::presenter();
    if (!presenter)
        return;
    OpenPanelRequest request;
    request.message = addPanelMessage;
    request.prompt = QStringLiteral("Add");
    request.canChooseFiles = true;
    request.canChooseDirectories = true;
    request.directory = QDir::homePath();
    QPointer<BookmarkSetupViewModel> weak(this);
    presenter->present(request, [weak](const QUrl &chosen) {
        if (weak && !chosen.isEmpty())
            weak->addURL(chosen);
    });
}

bool BookmarkSetupViewModel::addURL(const QUrl &url)
{
    const QString path = BookmarkController::pathOf(url);
    if (path.isEmpty())
        return false;
    for (const BookmarkDraft &draft : std::as_const(m_drafts)) {
        if (BookmarkController::pathOf(draft.url) == path)
            return false;
    }
    QList<BookmarkDraft> drafts = m_drafts;
    drafts.append(BookmarkDraft{QUuid::createUuid(), url, BookmarkController::lastPathComponent(url), true});
    setDrafts(drafts);
    setUnsaved(true);
    return true;
}

void BookmarkSetupViewModel::removeDrafts(const QSet<QUuid> &ids)
{
    QList<BookmarkDraft> drafts = m_drafts;
    drafts.removeIf([&](const BookmarkDraft &draft) { return ids.contains(draft.id); });
    if (drafts.size() == m_drafts.size())
        return;
    setDrafts(drafts);
    setUnsaved(true);
}

void BookmarkSetupViewModel::setDraftEnabled(const QUuid &id, bool enabled)
{
    QList<BookmarkDraft> drafts = m_drafts;
    for (BookmarkDraft &draft : drafts) {
        if (draft.id == id && draft.enabled != enabled) {
            draft.enabled = enabled;
            setDrafts(drafts);
            setUnsaved(true);
            return;
        }
    }
}

void BookmarkSetupViewModel::setDraftDisplayName(const QUuid &id, const QString &displayName)
{
    QList<BookmarkDraft> drafts = m_drafts;
    for (BookmarkDraft &draft : drafts) {
        if (draft.id == id && draft.displayName != displayName) {
            draft.displayName = displayName;
            setDrafts(drafts);
            setUnsaved(true);
            return;
        }
    }
}

void BookmarkSetupViewModel::finish()
{
    QSet<QString> enabledPaths;
    for (const BookmarkDraft &draft : std::as_const(m_drafts)) {
        if (draft.enabled)
            enabledPaths.insert(BookmarkController::pathOf(draft.url));
    }
    for (const BookmarkInfo &info : m_controller->bookmarks()) {
        if (!enabledPaths.contains(info.path()))
            m_controller->removeBookmark(info.url);
    }
    for (const BookmarkDraft &draft : std::as_const(m_drafts)) {
        if (!draft.enabled)
            continue;
        AppError error;
        if (!m_controller->addBookmark(draft.url, draft.displayName, &error)) {
            LogController::shared()->log(QStringLiteral("[SecurityScope] Failed saving bookmark: ") + error.description,
                                         -1, MCPLogMessageType::Error);
        }
    }
    setUnsaved(false);
    emit finished();
}

QString BookmarkSetupViewModel::statusTitle() const
{
    if (m_drafts.isEmpty())
        return emptyTitle;
    if (m_hasUnsavedChanges)
        return unsavedChangesMessage;
    return QString();
}

QString BookmarkSetupViewModel::statusMessage() const
{
    return m_drafts.isEmpty() ? emptyMessage : QString();
}

void BookmarkSetupViewModel::setDrafts(QList<BookmarkDraft> drafts)
{
    m_drafts = std::move(drafts);
    m_selectedURLs.clear();
    for (const BookmarkDraft &draft : std::as_const(m_drafts))
        m_selectedURLs.append(draft.url);
    emit draftsChanged();
}

void BookmarkSetupViewModel::setUnsaved(bool value)
{
    if (m_hasUnsavedChanges == value)
        return;
    m_hasUnsavedChanges = value;
    emit hasUnsavedChangesChanged();
}
