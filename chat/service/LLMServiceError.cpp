#include "chat/service/LLMServiceError.h"

QString LLMServiceError::description() const
{
    return AIProvider::displayName(provider) + QStringLiteral(" does not support ") + feature + QLatin1Char('.');
}
