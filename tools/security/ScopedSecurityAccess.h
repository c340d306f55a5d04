#pragma once

#include "tools/security/BookmarkController.h"
#include "tools/security/FileAccessPolicy.h"

#include <QUrl>

// Brackets file work with beginAccess and endAccess, so that every path out of the work,
// early returns included, ends the access it began.
//
// The form with an intent asks FileAccessPolicy first: a location outside every grant (or
// one of Kelvara's own that the tools never touch) begins nothing, and the work must not
// start; denial() says why.
class ScopedSecurityAccess {
public:
    ScopedSecurityAccess(BookmarkController *controller, const QUrl &url) : m_controller(controller), m_url(url)
    {
        begin();
    }
    ScopedSecurityAccess(BookmarkController *controller, const QString &path, FileAccessPolicy::Intent intent,
                         FileAccessPolicy::Caller caller = FileAccessPolicy::Caller::fileTool)
        : m_controller(controller), m_url(QUrl::fromLocalFile(path)),
          m_decision(FileAccessPolicy::check(controller, path, intent, caller))
    {
        if (m_decision.allowed())
            begin();
    }
    ~ScopedSecurityAccess()
    {
        if (m_begun)
            m_controller->endAccess(m_url);
    }
    ScopedSecurityAccess(const ScopedSecurityAccess &) = delete;
    ScopedSecurityAccess &operator=(const ScopedSecurityAccess &) = delete;

    bool allowed() const { return m_decision.allowed(); }
    QString denial() const { return m_decision.denial.value_or(QString()); }

private:
    void begin()
    {
        if (m_controller) {
            m_controller->beginAccess(m_url);
            m_begun = true;
        }
    }

    BookmarkController *m_controller;
    QUrl m_url;
    FileAccessPolicy::Decision m_decision;
    bool m_begun = false;
};
