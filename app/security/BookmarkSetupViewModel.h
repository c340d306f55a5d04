#pragma once

#include "app/security/BookmarkDraft.h"

#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QUrl>
#include <QUuid>

class BookmarkController;

// The security scopes assistant, headless: page 0 introduces, page 1 is the table of
// drafts made from the stored choices. Nothing reaches the controller until finish().
// Main thread.
class BookmarkSetupViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(int currentPage READ currentPage WRITE setCurrentPage NOTIFY currentPageChanged)
    Q_PROPERTY(QList<QUrl> selectedURLs READ selectedURLs NOTIFY draftsChanged)
    Q_PROPERTY(QList<BookmarkDraft> drafts READ drafts NOTIFY draftsChanged)
    Q_PROPERTY(bool hasUnsavedChanges READ hasUnsavedChanges NOTIFY hasUnsavedChangesChanged)
    Q_PROPERTY(QString introductionText READ introductionText CONSTANT)

public:
    static constexpr int introductionPage = 0;
    static constexpr int draftsPage = 1;

    static inline const QString introduction = QStringLiteral(
        "Kelvara - Security Scopes\n\n"
        "Choose the files and folders that Kelvara's tools and scripts may read and write. Everything else "
        "stays out of their reach.\n\n"
        "Steps:\n"
        "1. Review this introduction.\n"
        "2. Add the files and folders Kelvara may use, review the list and finish.\n\n"
        "You can change the list later in File \u25B8 Settings \u25B8 Security Scopes.\n\n");
    static inline const QString addPanelMessage = QStringLiteral("Add file or directory resource");
    static inline const QString emptyTitle = QStringLiteral("No files selected");
    static inline const QString emptyMessage = QStringLiteral("Choose at least one location to continue.");
    static inline const QString unsavedChangesMessage = QStringLiteral("You have unsaved changes");

    // Over the shared controller unless one is given. Opens at once (see open()).
    explicit BookmarkSetupViewModel(BookmarkController *controller = nullptr, QObject *parent = nullptr);

    int currentPage() const { return m_currentPage; }
    void setCurrentPage(int page);
    Q_INVOKABLE void nextPage();
    Q_INVOKABLE void previousPage();

    QList<QUrl> selectedURLs() const { return m_selectedURLs; }
    QList<BookmarkDraft> drafts() const { return m_drafts; }
    bool hasUnsavedChanges() const { return m_hasUnsavedChanges; }
    QString introductionText() const { return introduction; }

    // Remakes the drafts from the stored choices, all ticked, and clears the changes.
    Q_INVOKABLE void open();
    // Shows the open panel ("Add file or directory resource") and adds what it gives.
    Q_INVOKABLE void addLocation();
    // Appends a draft for the location, named after its last path component. A location
    // that already has a draft is not added twice; tells whether a row was added.
    bool addURL(const QUrl &url);
    // Takes the selected rows out.
    void removeDrafts(const QSet<QUuid> &ids);
    void setDraftEnabled(const QUuid &id, bool enabled);
    void setDraftDisplayName(const QUuid &id, const QString &displayName);
    // Applies the table: stored choices without an enabled draft are removed, enabled
    // drafts are stored. A draft that cannot be stored is logged and skipped.
    Q_INVOKABLE void finish();

    // What the drafts page says besides its table: the empty state, or the pending
    // changes; nothing when neither applies.
    bool isEmpty() const { return m_drafts.isEmpty(); }
    QString statusTitle() const;
    QString statusMessage() const;

signals:
    void currentPageChanged();
    void draftsChanged();
    void hasUnsavedChangesChanged();
    // finish() has applied the table.
    void finished();

private:
    void setDrafts(QList<BookmarkDraft> drafts);
    void setUnsaved(bool value);

    BookmarkController *m_controller;
    int m_currentPage = introductionPage;
    QList<QUrl> m_selectedURLs;
    QList<BookmarkDraft> m_drafts;
    bool m_hasUnsavedChanges = false;
};
