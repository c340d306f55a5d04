#include "workbench/FSNode.h"

#include <QFileInfo>

QString FSNode::name() const
{
    return QFileInfo(path).fileName();
}
