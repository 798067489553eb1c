#include "sound/CSampleFunnel.h"

CSampleFunnel::CSampleFunnel(const CSampleType& sourceType, const CSampleType& destinationType,
                             const CCountedPtr<Filter>& filter)
    : fSourceType(sourceType.Value()), fDestinationType(destinationType.Value()), fFilter(filter)
{
}

CSampleFunnel::~CSampleFunnel() = default;
