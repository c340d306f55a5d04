#include "chat/markdown/CodeTokenHighlighter.h"

#include <QHash>
#include <QSet>
#include <QStringList>

namespace {

struct Language {
    QSet<QString> keywords;
    QSet<QString> types;
    QString lineComment;
    QString blockOpen;
    QString blockClose;
};

QSet<QString> words(const char *list)
{
    QSet<QString> out;
    for (const QString &w : QString::fromLatin1(list).split(QLatin1Char(' '), Qt::SkipEmptyParts))
        out.insert(w);
    return out;
}

// Names, lower case, to their language; built on first use.
const QHash<QString, Language> &languages()
{
    static const QHash<QString, Language> table = [] {
        QHash<QString, Language> t;
        auto add = [&](const QStringList &names, const Language &lang) {
            for (const QString &n : names)
                t.insert(n, lang);
        };
        const QString slashes = QStringLiteral("//"), open = QStringLiteral("/*"), close = QStringLiteral("*/");
        add({QStringLiteral("swift")},
            {words("func var let class struct enum protocol extension import return if else guard switch case default "
                   "for while in true false nil self super init deinit override final static lazy private fileprivate "
                   "internal public open throws throw try catch async await actor some any where as is new do defer "
                   "break continue fallthrough typealias associatedtype inout mutating nonmutating @escaping "
                   "@MainActor @Published @State @Binding @ObservedObject"),
             words("String Int Double Float Bool Array Dictionary Set Optional Void Data URL Date UUID Error Any "
                   "AnyObject Never View Text Color Font"),
             slashes, open, close});
        add({QStringLiteral("python"), QStringLiteral("py")},
            {words("def class import from return if elif else for while in not and or True False None try except "
                   "finally with as pass break continue raise yield lambda async await global nonlocal del assert is"),
             words("str int float bool list dict tuple set bytes type object print len range enumerate zip map filter "
                   "open"),
             QStringLiteral("#"), {}, {}});
        add({QStringLiteral("js"), QStringLiteral("javascript"), QStringLiteral("ts"), QStringLiteral("typescript")},
            {words("const let var function return if else for while in of true false null undefined new this class "
                   "extends import export default try catch finally throw async await typeof instanceof switch case "
                   "break continue do delete void yield static get set super"),
             words("String Number Boolean Object Array Promise Map Set Error JSON Math Date console window document "
                   "setTimeout fetch"),
             slashes, open, close});
        add({QStringLiteral("java")},
            {words("abstract assert break case catch class const continue default do else enum extends final finally "
                   "for goto if implements import instanceof interface native new package private protected public "
                   "return static strictfp super switch synchronized this throw throws transient try volatile while "
                   "var record sealed permits non-sealed yield module requires exports opens uses provides to with "
                   "true false null"),
             words("void boolean byte short int long float double char String Object Class Enum List ArrayList "
                   "LinkedList Map HashMap Set HashSet Optional Stream Collectors Math System Integer Long Double Float "
                   "Boolean Character Runnable Thread Exception RuntimeException IOException SQLException"),
             slashes, open, close});
        add({QStringLiteral("c"), QStringLiteral("h")},
            {words("auto break case const continue default do else enum extern for goto if inline register restrict "
                   "return sizeof static struct switch typedef union volatile while _Alignas _Alignof _Atomic _Bool "
                   "_Complex _Generic _Imaginary _Noreturn _Static_assert _Thread_local"),
             words("void char short int long float double signed unsigned size_t ptrdiff_t FILE time_t bool wchar_t "
                   "int8_t uint8_t int16_t uint16_t int32_t uint32_t int64_t uint64_t"),
             slashes, open, close});
        add({QStringLiteral("cpp"), QStringLiteral("c++"), QStringLiteral("cc"), QStringLiteral("cxx"),
             QStringLiteral("hpp"), QStringLiteral("hh"), QStringLiteral("hxx")},
            {words("alignas alignof and and_eq asm auto bitand bitor break case catch class compl concept const "
                   "consteval constexpr constinit const_cast continue co_await co_return co_yield decltype default "
                   "delete do dynamic_cast else enum explicit export extern false for friend goto if inline mutable "
                   "namespace new noexcept not not_eq nullptr operator or or_eq private protected public "
                   "reinterpret_cast requires return sizeof static static_assert static_cast struct switch template "
                   "this thread_local throw true try typedef typeid typename union using virtual volatile while xor "
                   "xor_eq final override"),
             words("void bool char wchar_t char8_t char16_t char32_t short int long float double signed unsigned "
                   "size_t ptrdiff_t std string vector array map unordered_map set unordered_set optional variant "
                   "unique_ptr shared_ptr weak_ptr function tuple pair istream ostream stringstream"),
             slashes, open, close});
        add({QStringLiteral("objc"), QStringLiteral("objectivec"), QStringLiteral("obj-c"), QStringLiteral("m"),
             QStringLiteral("mm"), QStringLiteral("objc++")},
            {words("@interface @implementation @protocol @property @synthesize @dynamic @class @public @private "
                   "@protected @package @end @selector @try @catch @finally @throw @autoreleasepool @synchronized "
                   "@import if else switch case default for while do break continue return typedef enum struct union "
                   "const static extern inline volatile sizeof instancetype id self super nil YES NO"),
             words("NSObject NSString NSMutableString NSNumber NSArray NSMutableArray NSDictionary "
                   "NSMutableDictionary NSSet NSMutableSet NSError NSData NSDate NSURL NSFileManager NSInteger "
                   "NSUInteger CGFloat BOOL SEL Class id instancetype dispatch_queue_t dispatch_once_t"),
             slashes, open, close});
        add({QStringLiteral("bash"), QStringLiteral("sh"), QStringLiteral("zsh"), QStringLiteral("shell")},
            {words("if then else elif fi for while do done case esac in function return exit echo export local "
                   "readonly source alias unset set shift true false"),
             {}, QStringLiteral("#"), {}, {}});
        return t;
    }();
    return table;
}

bool isOperator(QChar c) { return QStringLiteral("+-*/%=!<>&|^~?:.").contains(c); }

// The end (exclusive) of a quoted run starting at `from` with quote `q`; a backslash skips
// the character behind it when `escapes`. Unterminated runs end with the text.
qsizetype stringEnd(const QString &s, qsizetype from, QChar q, bool escapes)
{
    qsizetype j = from + 1;
    while (j < s.size()) {
        if (escapes && s[j] == QLatin1Char('\\')) {
            j += 2;
            continue;
        }
        if (s[j] == q)
            return j + 1;
        ++j;
    }
    return s.size();
}

} // namespace

QList<SyntaxToken> CodeTokenHighlighter::tokenize(const QString &code, const QString &language)
{
    using Kind = SyntaxToken::Kind;
    QList<SyntaxToken> out;
    if (code.isEmpty())
        return out;
    const QString lang = language.toLower();
    if (lang == QLatin1String("json"))
        return tokenizeJson(code);
    if (lang == QLatin1String("xml") || lang == QLatin1String("html"))
        return tokenizeXml(code);
    const auto found = languages().constFind(lang);
    if (found == languages().constEnd()) {
        out.append({code, Kind::Plain});
        return out;
    }
    const Language &L = *found;
    const qsizetype n = code.size();
    const QStringView view(code);
    qsizetype i = 0;
    auto take = [&](qsizetype end, Kind kind) {
        out.append({code.mid(i, end - i), kind});
        i = end;
    };
    while (i < n) {
        const QChar c = code[i];
        if (!L.blockOpen.isEmpty() && view.mid(i).startsWith(L.blockOpen)) {
            const qsizetype close = code.indexOf(L.blockClose, i + L.blockOpen.size());
            if (close >= 0) {
                take(close + L.blockClose.size(), Kind::Comment);
                continue;
            }
        }
        if (!L.lineComment.isEmpty() && view.mid(i).startsWith(L.lineComment)) {
            const qsizetype lf = code.indexOf(QLatin1Char('\n'), i);
            take(lf < 0 ? n : lf, Kind::Comment);
            continue;
        }
        if (c == QLatin1Char('"') || c == QLatin1Char('\'')) {
            take(stringEnd(code, i, c, true), Kind::String);
            continue;
        }
        if (c.isDigit()) {
            qsizetype j = i + 1;
            while (j < n && (code[j].isDigit() || QStringLiteral("._xb").contains(code[j])))
                ++j;
            take(j, Kind::Number);
            continue;
        }
        if (c.isLetter() || c == QLatin1Char('_') || c == QLatin1Char('@')) {
            qsizetype j = i + 1;
            while (j < n && (code[j].isLetterOrNumber() || code[j] == QLatin1Char('_')))
                ++j;
            const QString word = code.mid(i, j - i);
            Kind kind = Kind::Plain;
            if (L.keywords.contains(word))
                kind = Kind::Keyword;
            else if (L.types.contains(word) || word[0].isUpper())
                kind = Kind::Type;
            take(j, kind);
            continue;
        }
        take(i + 1, isOperator(c) ? Kind::Operator : Kind::Plain);
    }
    return out;
}

QList<SyntaxToken> CodeTokenHighlighter::tokenizeJson(const QString &code)
{
    using Kind = SyntaxToken::Kind;
    QList<SyntaxToken> out;
    const qsizetype n = code.size();
    const QStringView view(code);
    qsizetype i = 0;
    auto take = [&](qsizetype end, Kind kind) {
        out.append({code.mid(i, end - i), kind});
        i = end;
    };
    while (i < n) {
        const QChar c = code[i];
        if (c == QLatin1Char('"')) {
            take(stringEnd(code, i, c, true), Kind::String);
            continue;
        }
        if (c.isDigit() || (c == QLatin1Char('-') && i + 1 < n && code[i + 1].isDigit())) {
            qsizetype j = i + 1;
            while (j < n && (code[j].isDigit() || QStringLiteral(".eE-+").contains(code[j])))
                ++j;
            take(j, Kind::Number);
            continue;
        }
        bool literal = false;
        for (QLatin1String w : {QLatin1String("true"), QLatin1String("false"), QLatin1String("null")}) {
            if (view.mid(i).startsWith(w)) {
                take(i + w.size(), Kind::Keyword);
                literal = true;
                break;
            }
        }
        if (literal)
            continue;
        take(i + 1, QStringLiteral("{}[]:,").contains(c) ? Kind::Operator : Kind::Plain);
    }
    return out;
}

QList<SyntaxToken> CodeTokenHighlighter::tokenizeXml(const QString &code)
{
    using Kind = SyntaxToken::Kind;
    QList<SyntaxToken> out;
    const qsizetype n = code.size();
    const QStringView view(code);
    qsizetype i = 0;
    auto take = [&](qsizetype end, Kind kind) {
        out.append({code.mid(i, end - i), kind});
        i = end;
    };
    while (i < n) {
        const QChar c = code[i];
        if (view.mid(i).startsWith(QLatin1String("<!--"))) {
            const qsizetype close = code.indexOf(QLatin1String("-->"), i + 4);
            if (close >= 0) {
                take(close + 3, Kind::Comment);
                continue;
            }
        }
        if (c == QLatin1Char('<')) {
            const qsizetype close = code.indexOf(QLatin1Char('>'), i + 1);
            take(close < 0 ? n : close + 1, Kind::Keyword);
            continue;
        }
        if (c == QLatin1Char('"')) {
            take(stringEnd(code, i, c, false), Kind::String);
            continue;
        }
        take(i + 1, Kind::Plain);
    }
    return out;
}
