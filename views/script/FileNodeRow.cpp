#include "views/script/FileNodeRow.h"

#include "workbench/FileExplorerModel.h"

#include <QApplication>
#include <QFileInfo>
#include <QStyle>

FileNodeRow::FileNodeRow(std::shared_ptr<FSNode> node) : m_node(std::move(node))
{
    setText(0, m_node->name());
    setToolTip(0, m_node->path);
    QStyle *style = QApplication::style();
    setIcon(0, style->standardIcon(m_node->isDirectory ? QStyle::SP_DirIcon : QStyle::SP_FileIcon));
    if (!m_node->isDirectory) {
        setText(1, FileExplorerModel::sizeText(m_node->size));
        setTextAlignment(1, Qt::AlignRight | Qt::AlignVCenter);
    }
    setChildIndicatorPolicy(m_node->isDirectory ? QTreeWidgetItem::ShowIndicator : QTreeWidgetItem::DontShowIndicator);
}
