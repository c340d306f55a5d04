#pragma once

#include "workbench/FSNode.h"

#include <QTreeWidgetItem>
#include <memory>

// One row of the explorer's tree: the node's icon and name, and a file's size. A folder
// whose children are not read yet still shows its expander, so it can be opened.
class FileNodeRow : public QTreeWidgetItem {
public:
    explicit FileNodeRow(std::shared_ptr<FSNode> node);

    const std::shared_ptr<FSNode> &node() const { return m_node; }
    QString path() const { return m_node->path; }

private:
    std::shared_ptr<FSNode> m_node;
};
