#include "views/chat/ChatSettingsWindow.h"

#include "chat/markdown/MarkdownRenderer.h"

#include <QColorDialog>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QSlider>
#include <QTextBrowser>
#include <QVBoxLayout>

#include <cmath>

namespace {

const QString kSample = QStringLiteral(
    "## Preview\n\nAnswers use **bold**, *italics* and `inline code`.\n\n- a list item\n- another one\n\n"
    "```cpp\nint main() { return 0; } // done\n```");

QString swatchStyle(const QColor &c)
{
    return QStringLiteral("background-color: %1; border: 1px solid palette(mid); min-width: 40px;")
        .arg(c.name(QColor::HexArgb));
}

} // namespace

ChatSettingsWindow::ChatSettingsWindow(AppearanceSettings *settings, QWidget *parent)
    : QDialog(parent), m_settings(settings), m_draft(settings->values())
{
    setWindowTitle(QStringLiteral("Chat Settings"));
    resize(540, 720);
    auto *outer = new QVBoxLayout(this);
    auto *title = new QLabel(QStringLiteral("<b>Appearance</b>"), this);
    outer->addWidget(title);
    outer->addWidget(new QLabel(QStringLiteral("Fonts, sizes and line spacing for the chat interface"), this));

    auto *scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    auto *body = new QWidget(scroll);
    auto *column = new QVBoxLayout(body);
    scroll->setWidget(body);
    outer->addWidget(scroll, 1);

    using P = AppearanceSettings::Payload;
    auto *fonts = new QGroupBox(QStringLiteral("Fonts"), body);
    auto *fontForm = new QFormLayout(fonts);
    fontForm->addRow(QStringLiteral("Chat Font"), familyPicker(QStringLiteral("chatFont"), &P::chatFont));
    fontForm->addRow(QStringLiteral("Input Field Font"), familyPicker(QStringLiteral("inputFont"), &P::inputFont));
    fontForm->addRow(QStringLiteral("Code Font"), familyPicker(QStringLiteral("codeFont"), &P::codeFont));
    column->addWidget(fonts);

    auto *sizes = new QGroupBox(QStringLiteral("Sizes"), body);
    auto *sizeForm = new QFormLayout(sizes);
    sizeForm->addRow(QStringLiteral("User messages"), sizeStepper(QStringLiteral("userFontSize"), &P::userFontSize));
    sizeForm->addRow(QStringLiteral("Assistant messages"),
                     sizeStepper(QStringLiteral("assistantFontSize"), &P::assistantFontSize));
    sizeForm->addRow(QStringLiteral("Input field"), sizeStepper(QStringLiteral("inputFontSize"), &P::inputFontSize));
    sizeForm->addRow(QStringLiteral("Code"), sizeStepper(QStringLiteral("codeFontSize"), &P::codeFontSize));

    m_spacing = new QSlider(Qt::Horizontal, sizes);
    m_spacing->setObjectName(QStringLiteral("lineSpacing"));
    m_spacing->setRange(0, sliderPosition(1.8));
    m_spacing->setTickPosition(QSlider::TicksBelow);
    m_spacing->setTickInterval(4);
    m_spacingValue = new QLabel(sizes);
    auto *marks = new QHBoxLayout;
    for (const char *mark : {"Tight", "Normal", "Relaxed", "Spacious"}) {
        marks->addWidget(new QLabel(QLatin1String(mark), sizes));
        marks->addStretch(1);
    }
    auto *spacingBox = new QVBoxLayout;
    auto *sliderRow = new QHBoxLayout;
    sliderRow->addWidget(m_spacing, 1);
    sliderRow->addWidget(m_spacingValue);
    spacingBox->addLayout(sliderRow);
    spacingBox->addLayout(marks);
    sizeForm->addRow(QStringLiteral("Line spacing"), spacingBox);
    connect(m_spacing, &QSlider::valueChanged, this, [this](int position) {
        m_draft.lineSpacing = spacingAt(position);
        m_spacingValue->setText(QString::number(m_draft.lineSpacing, 'f', 2));
        refreshPreview();
    });
    m_reloaders << [this] {
        m_spacing->setValue(sliderPosition(m_draft.lineSpacing));
        m_spacingValue->setText(QString::number(m_draft.lineSpacing, 'f', 2));
    };
    column->addWidget(sizes);

    auto *colors = new QGroupBox(QStringLiteral("Colors"), body);
    auto *colorForm = new QFormLayout(colors);
    for (int r = 0; r < AppearanceSettings::ColorCount; ++r) {
        const auto role = AppearanceSettings::ColorRole(r);
        auto *swatch = new QPushButton(colors);
        swatch->setObjectName(AppearanceSettings::colorKey(role));
        auto *reset = new QPushButton(QStringLiteral("Reset to default"), colors);
        reset->setObjectName(AppearanceSettings::colorKey(role) + QStringLiteral(".reset"));
        auto *row = new QHBoxLayout;
        row->addWidget(swatch);
        row->addStretch(1);
        row->addWidget(reset);
        colorForm->addRow(AppearanceSettings::colorLabel(role), row);
        auto show = [this, swatch, role] { swatch->setStyleSheet(swatchStyle(m_settings->color(role))); };
        show();
        m_reloaders << show;
        connect(swatch, &QPushButton::clicked, this, [this, role, show] {
            const QColor chosen = QColorDialog::getColor(m_settings->color(role), this,
                                                         AppearanceSettings::colorLabel(role),
                                                         QColorDialog::ShowAlphaChannel);
            if (!chosen.isValid())
                return;
            m_settings->setColor(role, chosen);
            show();
            refreshPreview();
        });
        connect(reset, &QPushButton::clicked, this, [this, role, show] {
            m_settings->resetColor(role);
            show();
            refreshPreview();
        });
    }
    column->addWidget(colors);

    auto *preview = new QGroupBox(QStringLiteral("Preview"), body);
    auto *previewColumn = new QVBoxLayout(preview);
    m_userBubble = new QLabel(QStringLiteral("How do I list the tools of my server?"), preview);
    m_userBubble->setObjectName(QStringLiteral("userBubble"));
    m_userBubble->setWordWrap(true);
    m_userBubble->setAutoFillBackground(true);
    m_assistantBubble = new QTextBrowser(preview);
    m_assistantBubble->setObjectName(QStringLiteral("assistantBubble"));
    m_assistantBubble->setMinimumHeight(180);
    m_input = new QLineEdit(QStringLiteral("Type a message…"), preview);
    m_input->setObjectName(QStringLiteral("inputPreview"));
    m_input->setReadOnly(true);
    previewColumn->addWidget(m_userBubble);
    previewColumn->addWidget(m_assistantBubble);
    previewColumn->addWidget(m_input);
    column->addWidget(preview);

    auto *buttons = new QDialogButtonBox(this);
    auto *reset = buttons->addButton(QStringLiteral("Reset"), QDialogButtonBox::ResetRole);
    reset->setToolTip(QStringLiteral("Reset to Defaults"));
    reset->setObjectName(QStringLiteral("resetAll"));
    auto *cancel = buttons->addButton(QStringLiteral("Cancel"), QDialogButtonBox::RejectRole);
    cancel->setToolTip(QStringLiteral("Leave unchanged"));
    auto *save = buttons->addButton(QStringLiteral("Save && Close"), QDialogButtonBox::AcceptRole);
    save->setObjectName(QStringLiteral("saveAndClose"));
    save->setDefault(true);
    connect(reset, &QPushButton::clicked, this, &ChatSettingsWindow::resetAll);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(save, &QPushButton::clicked, this, &ChatSettingsWindow::saveAndClose);
    outer->addWidget(buttons);

    loadDraft();
}

int ChatSettingsWindow::sliderPosition(double spacing)
{
    return int(std::lround((std::clamp(spacing, 1.0, 1.8) - 1.0) / 0.05));
}

double ChatSettingsWindow::spacingAt(int position) { return std::round((1.0 + position * 0.05) * 100) / 100; }

QString ChatSettingsWindow::familyLabel(ChatFontFamily::Value family)
{
    const QString name = ChatFontFamily::rawValue(family);
    return ChatFontFamily::isInstalled(family) ? name : name + QStringLiteral(" (not installed)");
}

QComboBox *ChatSettingsWindow::familyPicker(const QString &objectName,
                                            ChatFontFamily::Value AppearanceSettings::Payload::*field)
{
    auto *box = new QComboBox(this);
    box->setObjectName(objectName);
    for (int f = 0; f < ChatFontFamily::rawValues().size(); ++f)
        box->addItem(familyLabel(ChatFontFamily::Value(f)), f);
    connect(box, &QComboBox::currentIndexChanged, this, [this, box, field] {
        m_draft.*field = ChatFontFamily::Value(box->currentData().toInt());
        refreshPreview();
    });
    m_reloaders << [this, box, field] { box->setCurrentIndex(box->findData(int(m_draft.*field))); };
    return box;
}

QDoubleSpinBox *ChatSettingsWindow::sizeStepper(const QString &objectName, double AppearanceSettings::Payload::*field)
{
    auto *box = new QDoubleSpinBox(this);
    box->setObjectName(objectName);
    box->setRange(9, 24);
    box->setSingleStep(1);
    box->setDecimals(0);
    box->setSuffix(QStringLiteral(" pt"));
    connect(box, &QDoubleSpinBox::valueChanged, this, [this, field](double v) {
        m_draft.*field = v;
        refreshPreview();
    });
    m_reloaders << [this, box, field] { box->setValue(m_draft.*field); };
    return box;
}

void ChatSettingsWindow::loadDraft()
{
    const AppearanceSettings::Payload keep = m_draft;
    for (const auto &reload : m_reloaders) {
        m_draft = keep; // a control's change notice must not leak half a reload into the draft
        reload();
    }
    m_draft = keep;
    refreshPreview();
}

void ChatSettingsWindow::refreshPreview()
{
    if (!m_assistantBubble)
        return;
    AppearanceSettings::Payload shown = m_draft;
    for (int r = 0; r < AppearanceSettings::ColorCount; ++r)
        shown.colors[r] = m_settings->color(AppearanceSettings::ColorRole(r));
    auto paint = [](QWidget *w, const QColor &bg, const QColor &fg, const QFont &font) {
        QPalette pal = w->palette();
        pal.setColor(QPalette::Window, bg);
        pal.setColor(QPalette::Base, bg);
        pal.setColor(QPalette::WindowText, fg);
        pal.setColor(QPalette::Text, fg);
        w->setPalette(pal);
        w->setFont(font);
    };
    using A = AppearanceSettings;
    paint(m_userBubble, shown.colors[A::UserBubbleBackground], shown.colors[A::UserBubbleText],
          ChatFontFamily::font(shown.chatFont, shown.userFontSize));
    paint(m_assistantBubble, shown.colors[A::AssistantBubbleBackground], shown.colors[A::AssistantTextPrimary],
          ChatFontFamily::font(shown.chatFont, shown.assistantFontSize));
    paint(m_input, shown.colors[A::InputBackground], shown.colors[A::InputText],
          ChatFontFamily::font(shown.inputFont, shown.inputFontSize));

    MarkdownStyle style = m_settings->markdownStyle();
    style.bodyFont = ChatFontFamily::font(shown.chatFont, shown.assistantFontSize);
    style.bodySize = shown.assistantFontSize;
    style.codeFont = ChatFontFamily::font(shown.codeFont, shown.codeFontSize);
    style.codeSize = shown.codeFontSize;
    style.lineSpacing = shown.lineSpacing;
    MarkdownRenderer(style).render(kSample, m_assistantBubble->document());
}

void ChatSettingsWindow::saveAndClose()
{
    AppearanceSettings::Payload values = m_draft;
    for (int r = 0; r < AppearanceSettings::ColorCount; ++r)
        values.colors[r] = m_settings->color(AppearanceSettings::ColorRole(r));
    m_settings->setValues(values);
    accept();
}

void ChatSettingsWindow::resetAll()
{
    m_settings->resetToDefaults();
    m_draft = m_settings->values();
    loadDraft();
}
