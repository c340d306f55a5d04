#pragma once

#include <QString>

struct Plugin;
class QDialog;
class QLayout;
class QLabel;
class QWidget;

// Pieces the plug-in sheets share: their heading and the rows of a plug-in's descriptor.
namespace PluginSheetParts {

QLabel *heading(const QString &text, QWidget *parent, double scale = 1.3);
QLabel *wrapped(const QString &text, QWidget *parent);
// The descriptor: its description, then its rows, each value selectable; "No capabilities
// defined" for an empty capabilities text. withState adds whether it is enabled.
QLayout *descriptorLayout(const Plugin &plugin, QWidget *parent, bool withState = false);
// Grows a shown dialog to the height its wrapped texts need at its width.
void fitHeight(QDialog *dialog);

}  // namespace PluginSheetParts
