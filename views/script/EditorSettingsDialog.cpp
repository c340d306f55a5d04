#include "views/script/EditorSettingsDialog.h"

#include "views/script/SourceTextEditor.h"

#include "views/common/CommandButton.h"

#include "workbench/EditorSettings.h"

#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QFontInfo>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QLabel>
#include <QPixmap>
#include <QPushButton>
#include <QSpinBox>
#include <QToolButton>
#include <QVBoxLayout>

EditorSettingsDialog::EditorSettingsDialog(EditorSettings *settings, QWidget *parent) : QDialog(parent), m_settings(settings)
{
    setObjectName(QStringLiteral("editorSettings"));
    setWindowTitle(QStringLiteral("Editor Settings"));

    m_font = new QComboBox(this);
    m_font->setObjectName(QStringLiteral("fontName"));
    m_font->addItems(EditorSettings::fontFamilies);
    m_fontNote = new QLabel(this);
    m_fontNote->setObjectName(QStringLiteral("fontNote"));
    m_fontNote->setWordWrap(true);
    m_fontNote->setForegroundRole(QPalette::PlaceholderText);
    m_size = new QDoubleSpinBox(this);
    m_size->setObjectName(QStringLiteral("fontSize"));
    m_size->setRange(6.0, 48.0);
    m_size->setDecimals(0);
    m_theme = new QComboBox(this);
    m_theme->addItem(QStringLiteral("Default"));
    m_wrap = new QCheckBox(QStringLiteral("Wrap lines"), this);
    m_wrap->setObjectName(QStringLiteral("lineWrap"));
    m_column = new QSpinBox(this);
    m_column->setRange(1, 1000);
    m_whitespace = new QCheckBox(QStringLiteral("Show whitespace"), this);
    m_spaces = new QCheckBox(QStringLiteral("Indent with spaces"), this);
    m_tabWidth = new QComboBox(this);
    m_tabWidth->setObjectName(QStringLiteral("tabWidth"));
    for (int width : {2, 4, 8})
        m_tabWidth->addItem(QStringLiteral("%1 spaces").arg(width), width);

    auto *form = new QFormLayout;
    form->addRow(QStringLiteral("Font:"), m_font);
    form->addRow(QString(), m_fontNote);
    form->addRow(QStringLiteral("Size:"), m_size);
    form->addRow(QStringLiteral("Theme:"), m_theme);
    form->addRow(QString(), m_wrap);
    form->addRow(QStringLiteral("Wrap column:"), m_column);
    form->addRow(QString(), m_whitespace);
    form->addRow(QString(), m_spaces);
    form->addRow(QStringLiteral("Tab width:"), m_tabWidth);
    form->addRow(QStringLiteral("Keywords:"), colorButton("keywordColor", &EditorSettings::keywordColor));
    form->addRow(QStringLiteral("Strings:"), colorButton("stringColor", &EditorSettings::stringColor));
    form->addRow(QStringLiteral("Comments:"), colorButton("commentColor", &EditorSettings::commentColor));
    form->addRow(QStringLiteral("Numbers:"), colorButton("numberColor", &EditorSettings::numberColor));
    form->addRow(QStringLiteral("Functions:"), colorButton("functionColor", &EditorSettings::functionColor));

    auto *buttons = new QDialogButtonBox(this);
    QPushButton *reset = buttons->addButton(QStringLiteral("Reset"), QDialogButtonBox::ResetRole);
    buttons->addButton(QStringLiteral("Cancel"), QDialogButtonBox::RejectRole);
    QPushButton *save = buttons->addButton(CommandButton::label(QStringLiteral("Save changes"), QKeySequence::Save), QDialogButtonBox::AcceptRole);
    save->setShortcut(QKeySequence::Save);
    save->setDefault(true);

    auto *layout = new QVBoxLayout(this);
    auto *title = new QLabel(QStringLiteral("<b>Editor Settings</b>"), this);
    layout->addWidget(title);
    layout->addWidget(new QLabel(QStringLiteral("Font, theme, wrapping and syntax highlighting"), this));
    layout->addLayout(form);
    layout->addWidget(buttons);

    // Every change shows at once in the editor behind the sheet.
    auto changed = [this](auto apply) {
        return [this, apply](auto value) {
            if (m_refreshing)
                return;
            apply(value);
            m_settings->markChanged();
        };
    };
    connect(m_font, &QComboBox::currentTextChanged, this, changed([this](const QString &v) { m_settings->fontName = v; }));
    connect(m_font, &QComboBox::currentTextChanged, this, &EditorSettingsDialog::showFontNote);
    connect(m_size, &QDoubleSpinBox::valueChanged, this, changed([this](double v) { m_settings->fontSize = v; }));
    connect(m_theme, &QComboBox::currentIndexChanged, this, changed([this](int) { m_settings->themeName = QString(); }));
    connect(m_wrap, &QCheckBox::toggled, this, changed([this](bool v) { m_settings->lineWrap = v; }));
    connect(m_column, &QSpinBox::valueChanged, this, changed([this](int v) { m_settings->lineWrapColumn = v; }));
    connect(m_whitespace, &QCheckBox::toggled, this, changed([this](bool v) { m_settings->showWhitespace = v; }));
    connect(m_spaces, &QCheckBox::toggled, this, changed([this](bool v) { m_settings->useSpaces = v; }));
    connect(m_tabWidth, &QComboBox::currentIndexChanged, this,
            changed([this](int index) { m_settings->tabWidth = m_tabWidth->itemData(index).toInt(); }));
    connect(reset, &QPushButton::clicked, this, &EditorSettingsDialog::resetAll);
    connect(buttons, &QDialogButtonBox::accepted, this, &EditorSettingsDialog::saveChanges);
    connect(buttons, &QDialogButtonBox::rejected, this, &EditorSettingsDialog::reject);
    connect(m_settings, &EditorSettings::settingsChanged, this, &EditorSettingsDialog::refresh);
    refresh();
}

QToolButton *EditorSettingsDialog::colorButton(const char *name, QColor EditorSettings::*member)
{
    auto *button = new QToolButton(this);
    button->setObjectName(QString::fromLatin1(name));
    m_colors.append({button, member});
    connect(button, &QToolButton::clicked, this, [this, member] {
        const QColor color = QColorDialog::getColor(m_settings->*member, this, QStringLiteral("Colour"), QColorDialog::ShowAlphaChannel);
        if (!color.isValid())
            return;
        m_settings->*member = color;
        m_settings->markChanged();
    });
    return button;
}

void EditorSettingsDialog::refresh()
{
    m_refreshing = true;
    // A stored family that is not on the list still shows as itself.
    if (m_font->findText(m_settings->fontName) < 0)
        m_font->addItem(m_settings->fontName);
    m_font->setCurrentText(m_settings->fontName);
    showFontNote(m_settings->fontName);
    m_size->setValue(m_settings->fontSize);
    m_wrap->setChecked(m_settings->lineWrap);
    m_column->setValue(m_settings->lineWrapColumn);
    m_column->setEnabled(m_settings->lineWrap);
    m_whitespace->setChecked(m_settings->showWhitespace);
    m_spaces->setChecked(m_settings->useSpaces);
    if (m_tabWidth->findData(m_settings->tabWidth) < 0)
        m_tabWidth->addItem(QStringLiteral("%1 spaces").arg(m_settings->tabWidth), m_settings->tabWidth);
    m_tabWidth->setCurrentIndex(m_tabWidth->findData(m_settings->tabWidth));
    for (const auto &[button, member] : m_colors) {
        QPixmap swatch(28, 14);
        swatch.fill(m_settings->*member);
        button->setIcon(QIcon(swatch));
        button->setIconSize(swatch.size());
        button->setToolTip((m_settings->*member).name(QColor::HexArgb));
    }
    m_refreshing = false;
}

void EditorSettingsDialog::saveChanges()
{
    m_settings->save();
    accept();
}

void EditorSettingsDialog::resetAll()
{
    m_settings->resetToDefaults();
}

void EditorSettingsDialog::reject()
{
    m_settings->discardChanges();
    QDialog::reject();
}

void EditorSettingsDialog::showFontNote(const QString &family)
{
    const bool missing = !SourceTextEditor::isInstalled(family);
    if (missing)
        m_fontNote->setText(QStringLiteral("%1 is not installed here; the editor uses %2.")
                                .arg(family, QFontInfo(SourceTextEditor::editorFont(family, 12)).family()));
    m_fontNote->setVisible(missing);
}
