#include "chat/appearance/AppearanceSettings.h"

#include "base/UserDefaults.h"

#include <QCoreApplication>
#include <QEvent>
#include <QGuiApplication>
#include <QJsonDocument>
#include <QPalette>

namespace {

const char *const kColorKeys[] = {"userBubbleBackgroundColor",     "assistantBubbleBackgroundColor",
                                  "userBubbleTextColor",           "assistantTextPrimaryColor",
                                  "assistantTextSecondaryColor",   "assistantTextMutedColor",
                                  "assistantTextFaintColor",       "inputTextColor",
                                  "inputBackgroundColor"};
const char *const kColorLabels[] = {"User bubble background", "Assistant bubble background", "User bubble text",
                                    "Assistant text primary", "Assistant text secondary", "Assistant text muted",
                                    "Assistant text faint", "Input text color", "Input background"};

QPalette palette()
{
    return qobject_cast<QGuiApplication *>(QCoreApplication::instance()) ? QGuiApplication::palette() : QPalette();
}

QColor withAlpha(QColor c, double alpha)
{
    c.setAlphaF(float(alpha));
    return c;
}

QJsonObject colorJson(const QColor &color)
{
    const QColor c = color.isValid() ? color.toRgb() : palette().color(QPalette::Text).toRgb();
    return {{QStringLiteral("red"), c.redF()}, {QStringLiteral("green"), c.greenF()},
            {QStringLiteral("blue"), c.blueF()}, {QStringLiteral("alpha"), c.alphaF()}};
}

std::optional<QColor> colorFrom(const QJsonValue &value)
{
    const QJsonObject o = value.toObject();
    for (const char *k : {"red", "green", "blue", "alpha"})
        if (!o.value(QLatin1String(k)).isDouble())
            return std::nullopt;
    auto part = [&](const char *k) { return float(std::clamp(o.value(QLatin1String(k)).toDouble(), 0.0, 1.0)); };
    return QColor::fromRgbF(part("red"), part("green"), part("blue"), part("alpha"));
}

} // namespace

QJsonObject AppearanceSettings::Payload::toJson() const
{
    QJsonObject o{{QStringLiteral("chatFont"), ChatFontFamily::rawValue(chatFont)},
                  {QStringLiteral("inputFont"), ChatFontFamily::rawValue(inputFont)},
                  {QStringLiteral("codeFont"), ChatFontFamily::rawValue(codeFont)},
                  {QStringLiteral("userFontSize"), userFontSize},
                  {QStringLiteral("assistantFontSize"), assistantFontSize},
                  {QStringLiteral("inputFontSize"), inputFontSize},
                  {QStringLiteral("codeFontSize"), codeFontSize},
                  {QStringLiteral("lineSpacing"), lineSpacing}};
    for (int r = 0; r < ColorCount; ++r)
        o.insert(QLatin1String(kColorKeys[r]), colorJson(colors[r]));
    return o;
}

std::optional<AppearanceSettings::Payload> AppearanceSettings::Payload::fromJson(const QJsonObject &o,
                                                                                  const Payload &defaults)
{
    Payload p = defaults;
    for (auto [key, field] : {std::pair{"chatFont", &p.chatFont}, std::pair{"inputFont", &p.inputFont},
                              std::pair{"codeFont", &p.codeFont}}) {
        const auto family = ChatFontFamily::fromRawValue(o.value(QLatin1String(key)).toString());
        if (!family)
            return std::nullopt; // an unknown font fails the whole record
        *field = *family;
    }
    for (auto [key, field] : {std::pair{"userFontSize", &p.userFontSize},
                              std::pair{"assistantFontSize", &p.assistantFontSize},
                              std::pair{"inputFontSize", &p.inputFontSize}, std::pair{"codeFontSize", &p.codeFontSize},
                              std::pair{"lineSpacing", &p.lineSpacing}}) {
        const QJsonValue v = o.value(QLatin1String(key));
        if (!v.isDouble())
            return std::nullopt;
        *field = v.toDouble();
    }
    for (int r = 0; r < ColorCount; ++r) {
        const QJsonValue v = o.value(QLatin1String(kColorKeys[r]));
        if (v.isUndefined() || v.isNull())
            continue;
        const auto c = colorFrom(v);
        if (!c)
            return std::nullopt;
        p.colors[r] = *c;
    }
    return p;
}

AppearanceSettings::AppearanceSettings(std::unique_ptr<QSettings> store, QObject *parent)
    : QObject(parent), m_store(store ? std::move(store) : UserDefaults::groupSuite()), m_values(defaults())
{
    load();
    // The palette changes when the desktop's scheme does; the unpicked colours go with it.
    if (auto *app = QCoreApplication::instance())
        app->installEventFilter(this);
}

bool AppearanceSettings::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == QCoreApplication::instance() && event->type() == QEvent::ApplicationPaletteChange && followScheme())
        save();
    return QObject::eventFilter(watched, event);
}

bool AppearanceSettings::followScheme()
{
    const Payload current = defaults();
    bool moved = false;
    for (int r = 0; r < ColorCount; ++r)
        if (!m_chosen[r] && m_values.colors[r] != current.colors[r]) {
            m_values.colors[r] = current.colors[r];
            moved = true;
        }
    return moved;
}

AppearanceSettings::~AppearanceSettings() = default;

AppearanceSettings *AppearanceSettings::shared()
{
    // Owned by the application object, so it goes before the settings store is torn down.
    static AppearanceSettings *instance = new AppearanceSettings({}, QCoreApplication::instance());
    return instance;
}

QFont AppearanceSettings::userFont() const
{
    return ChatFontFamily::font(m_values.chatFont, m_values.userFontSize);
}

QFont AppearanceSettings::assistantFont() const
{
    return ChatFontFamily::font(m_values.chatFont, m_values.assistantFontSize);
}

QFont AppearanceSettings::inputFont() const
{
    return ChatFontFamily::font(m_values.inputFont, m_values.inputFontSize);
}

AppearanceSettings::Payload AppearanceSettings::defaults()
{
    const QPalette pal = palette();
    Payload p;
    const QColor secondaryLabel = pal.color(QPalette::PlaceholderText);
    p.colors[UserBubbleBackground] = pal.color(QPalette::Window);
    // The desktop's alternate row colour stands in for the "dark grey" of other platforms: a
    // fixed grey behind the theme's text colour is hard to read in light themes and dark ones.
    p.colors[AssistantBubbleBackground] = withAlpha(pal.color(QPalette::AlternateBase), 0.86);
    p.colors[UserBubbleText] = pal.color(QPalette::ButtonText);
    p.colors[AssistantTextPrimary] = pal.color(QPalette::ButtonText);
    p.colors[AssistantTextSecondary] = secondaryLabel;
    p.colors[AssistantTextMuted] = withAlpha(secondaryLabel, secondaryLabel.alphaF() * 0.95);
    p.colors[AssistantTextFaint] = withAlpha(secondaryLabel, secondaryLabel.alphaF() * 0.87);
    p.colors[InputText] = pal.color(QPalette::ButtonText);
    p.colors[InputBackground] = pal.color(QPalette::Base);
    return p;
}

QString AppearanceSettings::colorKey(ColorRole role) { return QLatin1String(kColorKeys[role]); }
QString AppearanceSettings::colorLabel(ColorRole role) { return QLatin1String(kColorLabels[role]); }

void AppearanceSettings::load()
{
    // A record written under the application's former name is taken over once.
    const QString legacyKey = LegacyPrefix + QStringLiteral("json");
    if (!m_store->contains(JsonKey) && m_store->contains(legacyKey)) {
        m_store->setValue(JsonKey, m_store->value(legacyKey));
        m_store->remove(legacyKey);
    }
    const QByteArray stored = m_store->value(JsonKey).toByteArray();
    const QJsonDocument doc = QJsonDocument::fromJson(stored);
    const Payload current = defaults();
    if (doc.isObject())
        if (auto p = Payload::fromJson(doc.object(), current))
            m_values = *p;
    if (m_store->contains(ChosenColorsKey)) {
        const QStringList chosen = m_store->value(ChosenColorsKey).toStringList();
        for (int r = 0; r < ColorCount; ++r)
            m_chosen[r] = chosen.contains(QLatin1String(kColorKeys[r]));
    } else {
        // A record from before the picks were kept: what differs from today's defaults was picked.
        for (int r = 0; r < ColorCount; ++r)
            m_chosen[r] = m_values.colors[r] != current.colors[r];
    }
    followScheme();
    save();
    m_store->sync();
}

void AppearanceSettings::save()
{
    m_store->setValue(JsonKey, QJsonDocument(m_values.toJson()).toJson(QJsonDocument::Compact));
    QStringList chosen;
    for (int r = 0; r < ColorCount; ++r)
        if (m_chosen[r])
            chosen << QLatin1String(kColorKeys[r]);
    m_store->setValue(ChosenColorsKey, chosen);
    emit changed();
}

void AppearanceSettings::setValues(const Payload &values)
{
    for (int r = 0; r < ColorCount; ++r)
        if (values.colors[r] != m_values.colors[r])
            m_chosen[r] = true;
    m_values = values;
    save();
}

void AppearanceSettings::setColor(ColorRole role, const QColor &color)
{
    m_chosen[role] = true;
    m_values.colors[role] = color;
    save();
}

void AppearanceSettings::resetColor(ColorRole role)
{
    m_chosen[role] = false;
    m_values.colors[role] = defaults().colors[role];
    save();
}

void AppearanceSettings::resetToDefaults()
{
    m_chosen.reset();
    m_values = defaults();
    save();
}

MarkdownStyle AppearanceSettings::markdownStyle() const
{
    MarkdownStyle s = MarkdownStyle::fromPalette();
    s.bodyFont = ChatFontFamily::font(m_values.chatFont, m_values.assistantFontSize);
    s.bodySize = m_values.assistantFontSize;
    s.codeFont = ChatFontFamily::font(m_values.codeFont, m_values.codeFontSize);
    s.codeSize = m_values.codeFontSize;
    s.lineSpacing = m_values.lineSpacing;
    s.primary = m_values.colors[AssistantTextPrimary];
    s.secondary = m_values.colors[AssistantTextSecondary];
    s.muted = m_values.colors[AssistantTextMuted];
    s.faint = m_values.colors[AssistantTextFaint];
    return s;
}
