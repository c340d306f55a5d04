#include "store/TransferError.h"

QString TransferError::description() const
{
    switch (kind) {
    case Kind::invalidConfig:
        return QStringLiteral("Invalid configuration: ") + text;
    case Kind::invalidBundle:
        return QStringLiteral("Invalid Bundle: ") + text;
    case Kind::invalidPath:
        return QStringLiteral("Invalid Path: ") + text;
    case Kind::encodingFailed:
        return QStringLiteral("Encoding Failed: ") + text;
    case Kind::writeFailed:
        return QStringLiteral("Write Failed: ") + text;
    case Kind::decodingFailed:
        return QStringLiteral("Decoding Failed: ") + text;
    case Kind::readFailed:
        return QStringLiteral("Read Failed: ") + text;
    case Kind::saveFailed:
        return QStringLiteral("Save Failed: ") + text;
    case Kind::unknown:
        break;
    }
    return QStringLiteral("Unknown Error: ") + text;
}
