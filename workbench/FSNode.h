#pragma once

#include <QList>
#include <QString>
#include <memory>
#include <optional>

// One file or folder of the explorer's tree; its path is its identity. A folder's children
// are read when it is first expanded.
struct FSNode {
    QString path;
    bool isDirectory = false;
    qint64 size = 0;
    std::optional<QList<std::shared_ptr<FSNode>>> children;
    bool childrenLoaded = false;
    int depthFromRoot = 0;

    QString name() const;
};
