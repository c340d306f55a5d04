#include "chat/markdown/CodeTokenHighlighter.h"

#include <gtest/gtest.h>

namespace {

using Kind = SyntaxToken::Kind;

// Tokens as "kind:text" with blanks and newlines left out, for compact expectations.
std::string describe(const QList<SyntaxToken> &tokens)
{
    QStringList parts;
    for (const SyntaxToken &t : tokens) {
        if (t.kind == Kind::Plain && t.text.trimmed().isEmpty())
            continue;
        static const char *names[] = {"kw", "type", "str", "num", "com", "op", "plain"};
        parts << QStringLiteral("%1:%2").arg(QLatin1String(names[int(t.kind)]), t.text);
    }
    return parts.join(QLatin1Char(' ')).toStdString();
}

std::string scan(const char *code, const char *lang)
{
    const QString text = QString::fromUtf8(code);
    const QList<SyntaxToken> tokens = CodeTokenHighlighter::tokenize(text, QString::fromLatin1(lang));
    QString joined;
    for (const SyntaxToken &t : tokens)
        joined += t.text;
    EXPECT_EQ(joined, text) << "tokens must give the text back";
    return describe(tokens);
}

TEST(CodeTokenHighlighter, EmptyTextGivesNoTokensInAnyLanguage)
{
    EXPECT_TRUE(CodeTokenHighlighter::tokenize(QString(), QStringLiteral("swift")).isEmpty());
    EXPECT_TRUE(CodeTokenHighlighter::tokenize(QString(), QStringLiteral("cobol")).isEmpty());
}

TEST(CodeTokenHighlighter, UnknownLanguageIsOnePlainToken)
{
    const auto tokens = CodeTokenHighlighter::tokenize(QStringLiteral("IDENTIFICATION DIVISION."), QStringLiteral("cobol"));
    ASSERT_EQ(tokens.size(), 1);
    EXPECT_EQ(tokens[0].kind, Kind::Plain);
}

TEST(CodeTokenHighlighter, CFamilyKeywordsTypesCommentsAndNumbers)
{
    EXPECT_EQ(scan("int main() { return 0x1F; } // done", "CPP"),
              "type:int plain:main plain:( plain:) plain:{ kw:return num:0x1 type:F plain:; plain:} com:// done");
    EXPECT_EQ(scan("/* a */ x = 1.5;", "c"), "com:/* a */ plain:x op:= num:1.5 plain:;");
    EXPECT_EQ(scan("a /* rest", "swift"), "plain:a op:/ op:* plain:rest");
    EXPECT_EQ(scan("const s = \"a\\\"b\"; Foo", "ts"), "kw:const plain:s op:= str:\"a\\\"b\" plain:; type:Foo");
}

TEST(CodeTokenHighlighter, ScriptingFamilies)
{
    EXPECT_EQ(scan("def f(): return r\"a\\\"b\" # note", "py"),
              "kw:def plain:f plain:( plain:) op:: kw:return plain:r str:\"a\\\"b\" com:# note");
    EXPECT_EQ(scan("if [ -n \"$X\" ]; then echo 'hi'; fi", "bash"),
              "kw:if plain:[ op:- plain:n str:\"$X\" plain:] plain:; kw:then kw:echo str:'hi' plain:; kw:fi");
    EXPECT_EQ(scan("let x = 'unterminated", "js"), "kw:let plain:x op:= str:'unterminated");
}

TEST(CodeTokenHighlighter, AtWordsAreKeywordsOnlyWhenListed)
{
    EXPECT_EQ(scan("@MainActor @foo @", "swift"), "kw:@MainActor plain:@foo plain:@");
    EXPECT_EQ(scan("@interface NSString", "objc"), "kw:@interface type:NSString");
}

TEST(CodeTokenHighlighter, JsonKeysAndValuesLookAlike)
{
    EXPECT_EQ(scan("{\"a\": -1.5e+3, \"b\": [true, null], \"c\": \"x\\\"y\"}", "json"),
              "op:{ str:\"a\" op:: num:-1.5e+3 op:, str:\"b\" op:: op:[ kw:true op:, kw:null op:] op:, str:\"c\" op:: "
              "str:\"x\\\"y\" op:}");
    EXPECT_EQ(scan("trueish", "json"), "kw:true plain:i plain:s plain:h");
}

TEST(CodeTokenHighlighter, XmlTagsAttributesAndComments)
{
    EXPECT_EQ(scan("<!-- c --><a href=\"x\">t</a>", "html"), "com:<!-- c --> kw:<a href=\"x\"> plain:t kw:</a>");
    EXPECT_EQ(scan("<!-- open <b", "xml"), "kw:<!-- open <b");
    EXPECT_EQ(scan("\"q", "xml"), "str:\"q");
}

TEST(CodeTokenHighlighter, ColoursOfKinds)
{
    const QColor text(Qt::white);
    EXPECT_EQ(SyntaxToken::colorOf(Kind::Keyword, text), QColor::fromRgbF(0.8f, 0.5f, 1.0f, 0.85f));
    const QColor comment = SyntaxToken::colorOf(Kind::Comment, text);
    EXPECT_EQ(comment.rgb(), text.rgb());
    EXPECT_NEAR(comment.alphaF(), 0.35, 0.01);
}

} // namespace
