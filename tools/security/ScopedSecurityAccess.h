#pragma once

#include "tools/security/BookmarkController.h"

#include <QUrl>

// Brackets file work with beginAccess and endAccess, so that every path out of the work,
// early returns included, ends the access it began.
class ScopedSecurityAccess {
public:
    ScopedSecurityAccess(BookmarkController *controller, const QUrl &url) : m_controller(controller), m_url(url)
    {
        if (m_controller)
            m_controller->beginAccess(m_url);
    }
    ~ScopedSecurityAccess()
    {
        if (m_controller)
            m_controller->endAccess(m_url);
    }
    ScopedSecurityAccess(const ScopedSecurityAccess &) = delete;
    ScopedSecurityAccess &operator=(const ScopedSecurityAccess &) = delete;

private:
    BookmarkController *m_controller;
    QUrl m_url;
};
