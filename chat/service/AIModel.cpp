#include "chat/service/AIModel.h"

size_t qHash(const AIModel &model, size_t seed) noexcept
{
    QtPrivate::QHashCombine combine;
    seed = combine(seed, model.id);
    seed = combine(seed, model.name);
    seed = combine(seed, static_cast<int>(model.provider));
    seed = combine(seed, model.isLoaded);
    seed = combine(seed, model.temperature.has_value() ? *model.temperature : -1.0);
    seed = combine(seed, model.temperature.has_value());
    seed = combine(seed, model.maxOutputTokens.has_value() ? *model.maxOutputTokens : qint64(-1));
    seed = combine(seed, model.maxOutputTokens.has_value());
    return seed;
}
