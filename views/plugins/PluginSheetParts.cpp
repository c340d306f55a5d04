#include "views/plugins/PluginSheetParts.h"

#include <algorithm>

#include "tools/plugins/Plugin.h"
#include "app/plugins/PluginTexts.h"

#include <QFontDatabase>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QDialog>
#include <QLayout>
#include <QVBoxLayout>

namespace PluginSheetParts {

QLabel *heading(const QString &text, QWidget *parent, double scale)
{
    auto *label = new QLabel(text, parent);
    QFont font = label->font();
    font.setBold(true);
    font.setPointSizeF(font.pointSizeF() * scale);
    label->setFont(font);
    label->setWordWrap(true);
    return label;
}

QLabel *wrapped(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setWordWrap(true);
    return label;
}

QLayout *descriptorLayout(const Plugin &plugin, QWidget *parent, bool withState)
{
    auto *form = new QFormLayout;
    form->setLabelAlignment(Qt::AlignRight | Qt::AlignVCenter);
    form->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    // Texts without blanks (paths, JSON) cannot wrap: they scroll in a read-only field.
    auto row = [form, parent](const QString &caption, const QString &value, const char *name, bool fixed = false) {
        QWidget *field;
        if (fixed) {
            auto *line = new QLineEdit(value, parent);
            line->setReadOnly(true);
            line->setFrame(false);
            line->setCursorPosition(0);
            line->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
            line->setToolTip(value);
            field = line;
        } else {
            auto *label = new QLabel(value, parent);
            label->setTextInteractionFlags(Qt::TextSelectableByMouse);
            field = label;
        }
        field->setObjectName(QString::fromLatin1(name));
        form->addRow(caption, field);
    };
    const PluginDescriptor d = plugin.toolDescriptor.value_or(PluginDescriptor{});
    row(QStringLiteral("Name:"), plugin.displayName(), "pluginName");
    row(QStringLiteral("Version:"), d.version, "pluginVersion");
    row(QStringLiteral("Author:"), d.author, "pluginAuthor");
    row(QStringLiteral("Identifier:"), d.toolIdentifier, "pluginIdentifier");
    row(QStringLiteral("Entry point:"), d.toolEntryPoint, "pluginEntryPoint", true);
    row(QStringLiteral("Interface version:"), QString::number(d.abiVersion), "pluginAbiVersion");
    row(QStringLiteral("Tool version:"), QString::number(d.toolVersion), "pluginToolVersion");
    row(QStringLiteral("Path:"), plugin.path, "pluginPath", true);
    if (d.capabilitiesJSON.isEmpty())
        row(QStringLiteral("Capabilities:"), PluginTexts::noCapabilities, "pluginCapabilities");
    else
        row(QStringLiteral("Capabilities:"), d.capabilitiesJSON, "pluginCapabilities", true);
    if (withState)
        row(QStringLiteral("State:"), plugin.isEnabled ? QStringLiteral("Enabled for this run") : QStringLiteral("Disabled"),
            "pluginState");

    // The description is prose: it wraps at the full width, above the rows.
    auto *description = wrapped(d.toolDescription, parent);
    description->setObjectName(QStringLiteral("pluginDescription"));
    description->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto *layout = new QVBoxLayout;
    layout->setSpacing(10);
    layout->addWidget(description);
    layout->addLayout(form);
    return layout;
}

void fitHeight(QDialog *dialog)
{
    // Wrapped labels need more height than the dialog's size hint says; give it to them.
    if (dialog->layout() && dialog->layout()->hasHeightForWidth())
        dialog->resize(dialog->width(), std::max(dialog->height(), dialog->heightForWidth(dialog->width())));
}

}  // namespace PluginSheetParts
