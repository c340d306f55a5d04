#include "tools/plugins/CustomToolHandler.h"

#include "base/SystemLog.h"

#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>
#include <QUrl>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>

namespace {

const char *const kDescribeSymbol = KELVARA_TOOL_DESCRIBE_SYMBOL;

void log(const QString &line)
{
    SystemLog::write(line);
}

// A failure is told once: in full when the caller keeps the error, else by its short cause.
bool fail(const char *operation, AppError *error, int code, const QString &description, const QString &shortCause)
{
    const QString prefix = QStringLiteral("[CustomToolHandler::%1] ").arg(QLatin1String(operation));
    if (error) {
        *error = AppError{CustomToolHandler::errorDomain(), code, description};
        log(prefix + QStringLiteral("error=") + error->toString());
    } else {
        log(prefix + shortCause);
    }
    return false;
}

QString lastDlError(const QString &fallback)
{
    const char *text = dlerror();
    return text ? QString::fromLocal8Bit(text) : fallback;
}

// The loader's words put so that a missing dependency or symbol is not read as the plug-in's
// own file being missing: "libdep.so: cannot open shared object file: No such file or
// directory" names the library the plug-in needs, not the plug-in.
QString explainedLoadError(const QString &file, const QString &loaderText)
{
    static const QString cannotOpen = QStringLiteral(": cannot open shared object file: ");
    const qsizetype at = loaderText.indexOf(cannotOpen);
    if (at > 0) {
        const QString needed = loaderText.left(at);
        if (QFileInfo(needed).fileName() != QFileInfo(file).fileName() && QFileInfo::exists(file))
            return QStringLiteral("%1 needs the library %2, which cannot be loaded: %3")
                .arg(QFileInfo(file).fileName(), needed, loaderText.mid(at + cannotOpen.size()));
    }
    static const QString undefined = QStringLiteral("undefined symbol: ");
    if (const qsizetype symbol = loaderText.indexOf(undefined); symbol >= 0)
        return QStringLiteral("%1 needs the symbol %2, which none of the libraries it loads provides (%3)")
            .arg(QFileInfo(file).fileName(), loaderText.mid(symbol + undefined.size()), loaderText);
    return loaderText;
}

QString canonicalPath(const char *path)
{
    if (!path || !*path)
        return {};
    char resolved[PATH_MAX];
    if (!realpath(path, resolved))
        return {};
    return QString::fromLocal8Bit(resolved);
}

// The plug-in's own image: the handle and the resolved path of the file it was opened from.
struct Image {
    void *handle = nullptr;
    QString file;
};

// dlsym on a handle also searches the libraries the plug-in depends on; only a symbol that
// is defined in the plug-in's own file counts.
void *resolveOwnSymbol(const Image &image, const QString &name, QString *why)
{
    const QByteArray symbol = name.toUtf8();
    dlerror();
    void *address = dlsym(image.handle, symbol.constData());
    if (!address) {
        *why = lastDlError(QStringLiteral("%1: undefined symbol: %2").arg(image.file, name));
        return nullptr;
    }
    Dl_info info{};
    const QString owner = dladdr(address, &info) ? canonicalPath(info.dli_fname) : QString();
    if (owner.isEmpty() || owner != canonicalPath(QFile::encodeName(image.file).constData())) {
        *why = QStringLiteral("%1: undefined symbol: %2 (defined only in %3)")
                   .arg(image.file, name, owner.isEmpty() ? QStringLiteral("another image") : owner);
        return nullptr;
    }
    return address;
}

QString withoutTrailingSlashes(QString path)
{
    while (path.size() > 1 && path.endsWith(QLatin1Char('/')))
        path.chop(1);
    return path;
}

}  // namespace

int CustomToolHandler::pluginTypeForPath(const QString &path)
{
    const QString name = withoutTrailingSlashes(path);
    if (name.endsWith(QLatin1String(".so")))
        return DynamicLibrary;
    if (name.endsWith(QLatin1String(".bundle")))
        return LoadableBundle;
    if (name.endsWith(QLatin1String(".plugin")))
        return LoadablePlugin;
    return Framework;
}

CustomToolHandler::~CustomToolHandler()
{
    if (m_pluginHandle)
        dlclose(m_pluginHandle);
}

void CustomToolHandler::reset()
{
    if (m_pluginHandle)
        dlclose(m_pluginHandle);
    m_pluginHandle = nullptr;
    m_imageFile.clear();
    m_toolEntryFunc = nullptr;
    m_toolDescriptor.reset();
}

bool CustomToolHandler::loadToolAtPath(const QString &path, int pluginType, AppError *error)
{
    log(QStringLiteral("[CustomToolHandler::loadToolAtPath] type=%1 path=%2").arg(pluginType).arg(path));
    // A handler is reused only through a fresh load.
    reset();
    switch (pluginType) {
    case DynamicLibrary:
        return loadLibrary(path, error);
    case LoadableBundle:
    case LoadablePlugin:
        return loadBundle(path, error);
    default:
        return fail("loadToolAtPath", error, 6, QStringLiteral("Invalid plugin type"), QStringLiteral("Invalid plugin type"));
    }
}

bool CustomToolHandler::loadLibrary(const QString &path, AppError *error)
{
    log(QStringLiteral("[CustomToolHandler::loadDynamicLibrary] path=%1").arg(path));
    // An absolute path keeps dlopen from searching the library path for a bare name.
    const QString file = QFileInfo(path).absoluteFilePath();
    dlerror();
    void *handle = dlopen(QFile::encodeName(file).constData(), RTLD_NOW | RTLD_LOCAL);
    if (!handle)
        return fail("loadDynamicLibrary", error, 1, explainedLoadError(file, lastDlError(QStringLiteral("dlopen failed"))),
                    QStringLiteral("Handle NULL pointer."));
    m_pluginHandle = handle;
    m_imageFile = file;
    if (!negotiateToolABI(error, DynamicLibrary, path) || !resolveToolEntry(error)) {
        reset();
        return false;
    }
    return true;
}

bool CustomToolHandler::negotiateToolABI(AppError *error, int pluginType, const QString &fullPath)
{
    log(QStringLiteral("[CustomToolHandler::negotiateToolABI]"));
    if (!m_pluginHandle)
        return fail("negotiateToolABI", error, 12, QStringLiteral("No loaded plugin handle"),
                    QStringLiteral("Handle NULL pointer."));
    QString why;
    auto describe = reinterpret_cast<KelvaraToolDescribeFunc>(resolveOwnSymbol({m_pluginHandle, m_imageFile}, QLatin1String(kDescribeSymbol), &why));
    if (!describe)
        return fail("negotiateToolABI", error, 13, QStringLiteral("Can't find tool decriptor function"),
                    QStringLiteral("Missing function: toolDescribe."));
    const KelvaraToolDescriptor *descriptor = describe();
    if (!descriptor)
        return fail("negotiateToolABI", error, 14, QStringLiteral("Invalid tool descriptor. NULL pointer."),
                    QStringLiteral("Invalid NULL descriptor."));
    m_toolDescriptor = ToolDescriptor::toolDescriptorWithCDescriptor(descriptor, pluginType, fullPath);
    if (m_toolDescriptor->abiVersion != KELVARA_TOOL_ABI_VERSION) {
        // Refused without an error object; the line tells a plug-in author why.
        log(QStringLiteral("[CustomToolHandler::negotiateToolABI] Unsupported abiVersion %1.").arg(m_toolDescriptor->abiVersion));
        return false;
    }
    return true;
}

bool CustomToolHandler::resolveToolEntry(AppError *error)
{
    log(QStringLiteral("[CustomToolHandler::resolveToolEntry]"));
    if (!m_pluginHandle)
        return fail("resolveToolEntry", error, 5, QStringLiteral("No loaded image handle"),
                    QStringLiteral("Handle NULL pointer."));
    const QString entryName = m_toolDescriptor ? m_toolDescriptor->toolEntryPoint : QString();
    QString why;
    m_toolEntryFunc = reinterpret_cast<KelvaraToolEntryFunc>(resolveOwnSymbol({m_pluginHandle, m_imageFile}, entryName, &why));
    if (!m_toolEntryFunc)
        return fail("resolveToolEntry", error, 6, why, why);
    return true;
}

bool CustomToolHandler::loadBundle(const QString &path, AppError *error)
{
    const QString bundlePath = withoutTrailingSlashes(QFileInfo(path).absoluteFilePath());
    log(QStringLiteral("[CustomToolHandler::loadBundle] url=%1").arg(QUrl::fromLocalFile(bundlePath + QLatin1Char('/')).toString()));

    const QFileInfo bundle(bundlePath);
    if (!bundle.isDir())
        return fail("loadBundle", error, 2, QStringLiteral("Failed to create CFBundle"), QStringLiteral("Bundle NULL pointer."));

    // The bundle's executable: Contents/Linux/<bundle name without its ending>.so.
    const QString executable =
        bundlePath + QStringLiteral("/Contents/Linux/") + bundle.completeBaseName() + QStringLiteral(".so");
    dlerror();
    void *image = dlopen(QFile::encodeName(executable).constData(), RTLD_NOW | RTLD_LOCAL);
    if (!image) {
        log(QStringLiteral("[CustomToolHandler::loadBundle] ") + lastDlError(executable));
        return fail("loadBundle", error, 3, QStringLiteral("Failed to load bundle executable"), QStringLiteral("Entry NULL pointer."));
    }
    // From here on a failure releases the image again; on success it stays for the process.
    auto release = [image] { dlclose(image); };

    QString why;
    auto describe = reinterpret_cast<KelvaraToolDescribeFunc>(resolveOwnSymbol({image, executable}, QLatin1String(kDescribeSymbol), &why));
    if (!describe) {
        release();
        return fail("loadBundle", error, 3, QStringLiteral("Failed to load bundle toolDescribe function"),
                    QStringLiteral("Can't find function toolDescribe."));
    }
    const KelvaraToolDescriptor *descriptor = describe();
    if (!descriptor) {
        release();
        return fail("loadBundle", error, 14, QStringLiteral("Invalid tool descriptor. NULL pointer."),
                    QStringLiteral("Invalid NULL descriptor."));
    }
    // Both bundle endings are recorded as type 2.
    ToolDescriptor copy = ToolDescriptor::toolDescriptorWithCDescriptor(descriptor, LoadableBundle, path);
    if (copy.abiVersion != KELVARA_TOOL_ABI_VERSION) {
        release();
        log(QStringLiteral("[CustomToolHandler::loadBundle] Unsupported abiVersion %1.").arg(copy.abiVersion));
        return fail("loadBundle", error, 24, QStringLiteral("Invalid tool descriptor. NULL pointer."),
                    QStringLiteral("Invalid NULL descriptor."));
    }
    // A bundle without its entry symbol still loads; every call then gives no result.
    m_toolEntryFunc = reinterpret_cast<KelvaraToolEntryFunc>(resolveOwnSymbol({image, executable}, copy.toolEntryPoint, &why));
    if (!m_toolEntryFunc)
        log(QStringLiteral("[CustomToolHandler::loadBundle] ") + why);
    m_toolDescriptor = std::move(copy);
    return true;
}

void CustomToolHandler::unloadPlugin()
{
    log(QStringLiteral("[CustomToolHandler::unloadPlugin]"));
    if (!m_pluginHandle)
        return;
    dlclose(m_pluginHandle);
    m_pluginHandle = nullptr;
    m_imageFile.clear();
    // The library's code is gone; a call now gives nothing instead of jumping into it.
    m_toolEntryFunc = nullptr;
}

std::optional<ToolDescriptor> CustomToolHandler::getToolDescriptor() const
{
    log(QStringLiteral("[CustomToolHandler::getToolDescriptor]"));
    return m_toolDescriptor;
}

std::optional<QString> CustomToolHandler::callToolWithSID(const QString &sid, const QString &toolName, const QString &json) const
{
    log(QStringLiteral("[CustomToolHandler::callToolWithSID]"));
    if (!m_toolEntryFunc)
        return std::nullopt;

    const QByteArray sidText = sid.toUtf8();
    const QByteArray nameText = toolName.toUtf8();
    const QByteArray jsonText = json.toUtf8();
    char *result = nullptr;
    uint64_t resultLength = 0;
    m_toolEntryFunc(sidText.constData(), nameText.constData(), jsonText.constData(), &result, &resultLength);
    if (!result)
        return std::nullopt;

    // The length is the plug-in's word and is only logged; the text ends at its NUL.
    const QByteArrayView bytes(result, qsizetype(std::strlen(result)));
    log(QStringLiteral("[CustomToolHandler::callToolWithSID] result: %1 bytes\n%2")
            .arg(qulonglong(resultLength))
            .arg(QString::fromUtf8(bytes)));
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless | QStringDecoder::Flag::ConvertInitialBom);
    QString text = decoder.decode(bytes);
    const bool valid = !decoder.hasError();
    std::free(result);
    if (!valid)
        return std::nullopt;
    return text;
}

std::optional<QString> CustomToolHandler::invokeSID(const QString &sid, const QString &tool, const QString &json) const
{
    log(QStringLiteral("[CustomToolHandler::invokeSID]"));
    return callToolWithSID(sid, tool, json);
}
