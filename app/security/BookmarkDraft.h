#pragma once

#include <QMetaType>
#include <QString>
#include <QUrl>
#include <QUuid>

// One row of the security scopes assistant: a location the user wants to keep, or has
// unticked to give up at the next finish.
struct BookmarkDraft {
    QUuid id;
    QUrl url;
    QString displayName;
    bool enabled = true;

    bool operator==(const BookmarkDraft &) const = default;
};

Q_DECLARE_METATYPE(BookmarkDraft)
