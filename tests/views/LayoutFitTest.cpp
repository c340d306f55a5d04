#include "app/OnBoardingCompletion.h"
#include "app/config/ToolsConfigController.h"
#include "chat/appearance/AppearanceSettings.h"
#include "tests/support/TestSupport.h"
#include "tests/views/ViewsTestSupport.h"
#include "views/app/AppMainWindow.h"
#include "views/app/BuiltinFeatures.h"
#include "views/app/OnBoardingBubble.h"
#include "views/chat/ChatSettingsWindow.h"
#include "views/chat/ChatView.h"
#include "views/common/ColorScheme.h"
#include "views/common/OverflowRow.h"
#include "views/common/ReadOnlyTextView.h"
#include "views/common/RecordRowDelegate.h"
#include "views/monitor/SystemMonitorWindow.h"
#include "views/prompts/PromptConfigView.h"
#include "views/resources/ResourceConfigView.h"
#include "app/config/PromptConfigController.h"
#include "app/config/ResourceConfigController.h"
#include "store/PersistenceController.h"
#include "store/StoreContext.h"
#include "store/ToolInputSchema.h"
#include "store/ToolsConfig.h"
#include "views/script/EditorSettingsDialog.h"
#include "views/settings/AppSettingsWindow.h"
#include "views/tools/ToolSchemaEditorDialog.h"
#include "workbench/EditorSettings.h"
#include "tests/support/TestServices.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QRadioButton>
#include <QRegularExpression>
#include <QStyleFactory>
#include <QStyleOptionButton>
#include <QStyleOptionComboBox>
#include <QTabBar>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>

using namespace ViewsTestSupport;

namespace {

QString describe(const QWidget *widget, const QString &text)
{
    return QStringLiteral("%1 \"%2\" (%3) in %4")
        .arg(QString::fromUtf8(widget->metaObject()->className()), text, widget->objectName(),
             widget->window()->windowTitle().isEmpty() ? widget->window()->objectName() : widget->window()->windowTitle());
}

// The width a button's label needs, by the widget's own font, with its icon.
int labelWidth(const QAbstractButton *button)
{
    int width = button->fontMetrics().size(Qt::TextShowMnemonic, button->text()).width();
    if (!button->icon().isNull())
        width += button->iconSize().width() + 4;
    return width;
}

// Every visible control of root whose text is wider than the room it is given.
QStringList clippedTexts(QWidget *root)
{
    QStringList found;
    QList<QWidget *> widgets = root->findChildren<QWidget *>();
    widgets.prepend(root);
    for (QWidget *widget : widgets) {
        if (!widget->isVisible() || widget->width() <= 0)
            continue;
        if (auto *push = qobject_cast<QPushButton *>(widget); push && !push->text().isEmpty()) {
            QStyleOptionButton option;
            option.initFrom(push);
            option.text = push->text();
            option.icon = push->icon();
            option.iconSize = push->iconSize();
            if (push->isFlat())
                option.features |= QStyleOptionButton::Flat;
            const QRect contents = push->style()->subElementRect(QStyle::SE_PushButtonContents, &option, push);
            if (labelWidth(push) > contents.width())
                found << describe(push, push->text());
        } else if (auto *check = qobject_cast<QCheckBox *>(widget); check && !check->text().isEmpty()) {
            if (check->width() < check->sizeHint().width())
                found << describe(check, check->text());
        } else if (auto *radio = qobject_cast<QRadioButton *>(widget); radio && !radio->text().isEmpty()) {
            if (radio->width() < radio->sizeHint().width())
                found << describe(radio, radio->text());
        } else if (auto *tool = qobject_cast<QToolButton *>(widget);
                   tool && !tool->text().isEmpty() && tool->toolButtonStyle() != Qt::ToolButtonIconOnly) {
            if (tool->width() < tool->sizeHint().width())
                found << describe(tool, tool->text());
        } else if (auto *label = qobject_cast<QLabel *>(widget);
                   label && !label->text().isEmpty() && !label->wordWrap()) {
            // Without wrapping, a label's own minimum is its whole text.
            if (label->width() < label->minimumSizeHint().width())
                found << describe(label, label->text());
        } else if (auto *combo = qobject_cast<QComboBox *>(widget); combo && !combo->isEditable() && combo->count() > 0) {
            QStyleOptionComboBox option;
            option.initFrom(combo);
            option.currentText = combo->currentText();
            const QRect field = combo->style()->subControlRect(QStyle::CC_ComboBox, &option, QStyle::SC_ComboBoxEditField, combo);
            int need = combo->fontMetrics().horizontalAdvance(combo->currentText());
            if (!combo->itemIcon(combo->currentIndex()).isNull())
                need += combo->iconSize().width() + 4;
            if (need > field.width())
                found << describe(combo, combo->currentText());
        } else if (auto *tabs = qobject_cast<QTabBar *>(widget)) {
            for (int i = 0; i < tabs->count(); ++i) {
                if (tabs->fontMetrics().size(Qt::TextShowMnemonic, tabs->tabText(i)).width() > tabs->tabRect(i).width())
                    found << describe(tabs, tabs->tabText(i));
            }
        }
    }
    return found;
}

// Pairs of visible siblings laid over one another (the tour's bubble lies over on purpose).
QStringList overlappingSiblings(QWidget *root)
{
    QStringList found;
    QList<QWidget *> parents = root->findChildren<QWidget *>();
    parents.prepend(root);
    for (QWidget *parent : parents) {
        if (!parent->isVisible())
            continue;
        QList<QWidget *> children;
        for (QObject *object : parent->children()) {
            auto *child = qobject_cast<QWidget *>(object);
            if (child && child->isVisible() && !child->isWindow() && !qobject_cast<OnBoardingBubble *>(child)
                && !child->geometry().isEmpty())
                children << child;
        }
        for (int i = 0; i < children.size(); ++i)
            for (int j = i + 1; j < children.size(); ++j)
                if (children[i]->geometry().intersects(children[j]->geometry()))
                    found << describe(children[i], QString()) + QStringLiteral(" overlaps ") + describe(children[j], QString());
    }
    return found;
}

class LayoutFitTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ChatView::startsServerOnAppear = false;
        BuiltinFeatures::registerAll(TestServices::application());
        // The tour's bubble is an overlay; it is checked on its own.
        for (MenuDestination destination : MenuDestinations::all())
            OnBoardingCompletion::shared()->setCompleted(destination, true);
    }
    void TearDown() override { closeAllWindows(); }

    static void expectFits(QWidget *root, const QString &where)
    {
        TestSupport::spin(30);
        const QStringList clipped = clippedTexts(root);
        EXPECT_TRUE(clipped.isEmpty()) << where.toStdString() << " clips: " << clipped.join(QStringLiteral("; ")).toStdString();
        const QStringList overlaps = overlappingSiblings(root);
        EXPECT_TRUE(overlaps.isEmpty()) << where.toStdString() << ": " << overlaps.join(QStringLiteral("; ")).toStdString();
    }
};

// The smallest window Kelvara is made for shows every screen with whole labels.
TEST_F(LayoutFitTest, EveryDestinationFitsAt1024By720)
{
    AppMainWindow *window = launchedWindow(MenuDestination::menuServerConfig);
    window->resize(1024, 720);
    for (MenuDestination destination : MenuDestinations::all()) {
        window->navigate(destination);
        expectFits(window, MenuDestinations::title(destination));
    }
    // And larger, where the folded commands come back out of their menu.
    window->resize(1400, 900);
    window->navigate(MenuDestination::menuAIChat);
    expectFits(window, QStringLiteral("AI Chat at 1400×900"));
}

// A new prompt's and a new resource's whole detail, with the messages' problem line shown.
TEST_F(LayoutFitTest, ARecordsDetailFitsAt1024By720)
{
    AppMainWindow *window = launchedWindow(MenuDestination::menuPromptConfig);
    window->resize(1024, 720);
    auto *prompts = qobject_cast<PromptConfigView *>(window->currentScreen());
    ASSERT_NE(prompts, nullptr);
    prompts->button("add")->click();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return prompts->controller()->selectedPrompt() != nullptr; }));
    prompts->messagesField()->setPlainText(QStringLiteral(R"([{"role": "system", "content": {"type": "text", "text": "Hi"}}])"));
    ASSERT_FALSE(prompts->messagesProblemLabel()->isHidden());
    expectFits(window, QStringLiteral("A new prompt"));

    window->navigate(MenuDestination::menuResourceConfig);
    auto *resources = qobject_cast<ResourceConfigView *>(window->currentScreen());
    ASSERT_NE(resources, nullptr);
    resources->button("add")->click();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return resources->controller()->selectedResourceConfig() != nullptr; }));
    expectFits(window, QStringLiteral("A new resource"));
}

TEST_F(LayoutFitTest, SecondaryWindowsAndSheetsFitAtTheirOwnSize)
{
    // Each is closed with Escape, as a dialog is; closing deletes it.
    auto check = [](QWidget *shown, const QString &where) {
        shown->setAttribute(Qt::WA_DeleteOnClose);
        QPointer<QWidget> alive(shown);
        shown->show();
        expectFits(shown, where);
        shown->activateWindow();
        TestSupport::waitUntil([&] { return shown->isActiveWindow(); }, 1000);
        QWidget *focus = shown->focusWidget() ? shown->focusWidget() : shown;
        QTest::keyClick(focus, Qt::Key_Escape);
        EXPECT_TRUE(TestSupport::waitUntil([&] { return !alive || !alive->isVisible(); }))
            << where.toStdString() << " stays open on Escape";
        if (alive)
            alive->close();
    };
    check(AppSettingsWindow::showSettings(), QStringLiteral("Settings"));
    check(SystemMonitorWindow::showMonitor(), QStringLiteral("System monitor"));
    check(new ReadOnlyTextView(QStringLiteral("help_tool_config.md"), QStringLiteral("Tools")), QStringLiteral("Help"));
    AppearanceSettings appearance;
    check(new ChatSettingsWindow(&appearance), QStringLiteral("Chat Settings"));
    check(new EditorSettingsDialog(EditorSettings::shared()), QStringLiteral("Editor settings"));

    // The schema editor, on a tool of a store of its own.
    QTemporaryDir folder;
    PersistenceController store(folder.filePath(QStringLiteral("Kelvara.sqlite")));
    auto *tool = store.viewContext()->insert<ToolsConfig>();
    auto *schema = store.viewContext()->insert<ToolInputSchema>();
    tool->addInputSchemasObject(schema);
    ToolsConfigController tools(store.viewContext());
    auto *editor = new ToolSchemaEditorDialog(std::make_unique<ToolInputSchemaEditor>(&tools, schema, true), true);
    editor->addParameter();
    check(editor, QStringLiteral("Schema editor"));
}

// Too little room: the last foldable buttons go into "⋯" in their order, still clickable
// there; room again: they come back and the menu button goes.
TEST_F(LayoutFitTest, AShortRowFoldsItsLastCommandsIntoAMenu)
{
    QWidget host;
    auto *row = new OverflowRow(&host);
    auto *name = new QLabel(QStringLiteral("A label that keeps its room"), &host);
    auto *first = new QPushButton(QStringLiteral("First command"), &host);
    auto *second = new QPushButton(QStringLiteral("Second command"), &host);
    auto *third = new QPushButton(QStringLiteral("Third command"), &host);
    third->setShortcut(QKeySequence(QStringLiteral("Ctrl+K")));
    auto *absent = new QPushButton(QStringLiteral("Never shown"), &host);
    absent->setVisible(false);
    row->addFixed(name);
    row->addFoldable(first);
    row->addFoldable(second);
    row->addFoldable(absent);
    row->addFoldable(third);
    host.setLayout(row);
    int clicks = 0;
    QObject::connect(third, &QPushButton::clicked, [&] { ++clicks; });

    const int roomy = name->sizeHint().width() + first->sizeHint().width() + second->sizeHint().width()
                      + third->sizeHint().width() + 4 * 12 + 40;
    host.resize(roomy, 40);
    host.show();
    TestSupport::spin(20);
    EXPECT_TRUE(row->foldedButtons().isEmpty());
    EXPECT_FALSE(row->moreButton()->isVisible());
    EXPECT_FALSE(absent->isVisible());

    host.resize(name->sizeHint().width() + first->sizeHint().width() + row->moreButton()->sizeHint().width() + 40, 40);
    TestSupport::spin(20);
    EXPECT_EQ(row->foldedButtons(), (QList<QAbstractButton *>{second, third}));
    EXPECT_TRUE(first->isVisible());
    EXPECT_FALSE(second->isVisible());
    EXPECT_TRUE(row->moreButton()->isVisible());
    EXPECT_TRUE(clippedTexts(&host).isEmpty()) << clippedTexts(&host).join(QStringLiteral("; ")).toStdString();
    EXPECT_TRUE(overlappingSiblings(&host).isEmpty());
    // The row asks for no less than its fixed part and the menu button.
    EXPECT_GE(host.minimumSizeHint().width(), name->sizeHint().width() + row->moreButton()->sizeHint().width());

    QMenu *menu = row->moreButton()->menu();
    emit menu->aboutToShow();
    QStringList items;
    for (QAction *action : menu->actions())
        items << action->text();
    EXPECT_EQ(items, (QStringList{"Second command", "Third command"}));
    menu->actions().last()->trigger();
    EXPECT_EQ(clicks, 1);
    // Its keys still work while it is folded away.
    host.activateWindow();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return host.isActiveWindow(); }, 2000));
    QTest::keyClick(&host, Qt::Key_K, Qt::ControlModifier);
    EXPECT_EQ(clicks, 2);

    host.resize(roomy, 40);
    TestSupport::spin(20);
    EXPECT_TRUE(row->foldedButtons().isEmpty());
    EXPECT_TRUE(third->isVisible());
    EXPECT_FALSE(row->moreButton()->isVisible());
    QTest::keyClick(&host, Qt::Key_K, Qt::ControlModifier);  // the button's own keys, once
    EXPECT_TRUE(TestSupport::waitUntil([&] { return clicks == 3; }, 2000)) << clicks;
    TestSupport::spin(200);
    EXPECT_EQ(clicks, 3);
}

// The words a Linux user reads: no Mac key glyphs, and no UTF-8 literal read as Latin-1
// (which shows "â" and boxes).
TEST(ViewWordingTest, NoMacGlyphsAndNoLatin1ReadingOfUtf8)
{
    const QString root = QStringLiteral(KELVARA_SOURCE_DIR);
    const QRegularExpression latin1(QStringLiteral(R"((fromLatin1|QLatin1String|QLatin1StringView|QLatin1Char)\s*\(\s*"([^"\\]|\\.)*")"));
    const QRegularExpression macGlyph(QStringLiteral("[⌘⌥⌃⇧]"));
    QStringList faults;
    int scanned = 0;
    for (const QString &folder : {QStringLiteral("views"), QStringLiteral("resources/help")}) {
        QDirIterator files(root + QLatin1Char('/') + folder, {"*.cpp", "*.h", "*.md"}, QDir::Files, QDirIterator::Subdirectories);
        while (files.hasNext()) {
            const QString path = files.next();
            QFile file(path);
            ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
            const QString text = QString::fromUtf8(file.readAll());
            ++scanned;
            const QStringList lines = text.split(QLatin1Char('\n'));
            for (int i = 0; i < lines.size(); ++i) {
                const QString &line = lines[i];
                const QString where = QStringLiteral("%1:%2").arg(QDir(root).relativeFilePath(path)).arg(i + 1);
                if (line.contains(macGlyph))
                    faults << where + QStringLiteral(" has a Mac key glyph");
                for (auto match = latin1.globalMatch(line); match.hasNext();) {
                    const QString literal = match.next().captured(0);
                    if (std::any_of(literal.begin(), literal.end(), [](QChar c) { return c.unicode() > 0x7f; }))
                        faults << where + QStringLiteral(" reads a non-ASCII literal as Latin-1");
                }
            }
        }
    }
    EXPECT_GT(scanned, 50);
    EXPECT_TRUE(faults.isEmpty()) << faults.join(QLatin1Char('\n')).toStdString();
}

// The dark palette reads as dark and the standard one as light; syntax colours made for a
// dark editor keep a readable contrast on a light one and the other way round, and colours
// that already contrast are left alone.
TEST(ColorSchemeTest, PalettesAndReadableTextColours)
{
    EXPECT_TRUE(ColorScheme::isDarkPalette(ColorScheme::darkPalette()));
    std::unique_ptr<QStyle> fusion(QStyleFactory::create(QStringLiteral("Fusion")));
    EXPECT_FALSE(ColorScheme::isDarkPalette(fusion->standardPalette()));

    const QColor white(Qt::white);
    const QColor editorDark = ColorScheme::darkPalette().color(QPalette::Base);
    auto contrast = [](const QColor &a, const QColor &b) { return std::abs(a.lightness() - b.lightness()); };
    for (const QColor &pastel : {QColor::fromRgbF(0.85f, 0.72f, 0.45f, 0.85f), QColor::fromRgbF(0.55f, 0.9f, 0.65f, 0.85f),
                                 QColor::fromRgbF(0.8f, 0.5f, 1.0f, 0.85f)}) {
        const QColor onLight = ColorScheme::readableOn(pastel, white);
        EXPECT_GE(contrast(onLight, white), 100) << pastel.name().toStdString() << " -> " << onLight.name().toStdString();
        EXPECT_GE(onLight.alphaF(), 0.75);
        EXPECT_EQ(ColorScheme::readableOn(pastel, editorDark), pastel);  // made for it
    }
    const QColor navy(0, 0, 128);
    EXPECT_EQ(ColorScheme::readableOn(navy, white), navy);
    EXPECT_GE(contrast(ColorScheme::readableOn(navy, editorDark), editorDark), 60);
}

// A list row's three lines: the name, the description (several lines read as one) and the
// counts, from the model's text or from the style option's, whose breaks are separators.
TEST(RecordRowDelegateTest, SplitsARowIntoNameDescriptionAndCounts)
{
    const auto lines = RecordRowDelegate::split(QStringLiteral("create_contact\nCreates a contact;\nat least a name\nInput 1"));
    EXPECT_EQ(lines.name, "create_contact");
    EXPECT_EQ(lines.description, "Creates a contact; at least a name");
    EXPECT_EQ(lines.counts, "Input 1");
    const auto separated = RecordRowDelegate::split(QStringLiteral("a") + QChar::LineSeparator + QStringLiteral("b") +
                                                    QChar::LineSeparator + QStringLiteral("c"));
    EXPECT_EQ((QStringList{separated.name, separated.description, separated.counts}), (QStringList{"a", "b", "c"}));
    const auto nameOnly = RecordRowDelegate::split(QStringLiteral("lonely"));
    EXPECT_EQ((QStringList{nameOnly.name, nameOnly.description, nameOnly.counts}), (QStringList{"lonely", "", ""}));

    // Rows as wide as the list, tall enough for the three lines.
    QListWidget list;
    list.setItemDelegate(new RecordRowDelegate(&list));
    list.setResizeMode(QListView::Adjust);
    list.addItem(QStringLiteral("create_contact\nCreates a contact\nInput 1"));
    list.resize(300, 200);
    list.show();
    TestSupport::spin(30);
    const QRect row = list.visualItemRect(list.item(0));
    EXPECT_GE(row.width(), list.viewport()->width() - 1);
    EXPECT_GE(row.height(), 3 * list.fontMetrics().height());
}

}  // namespace
