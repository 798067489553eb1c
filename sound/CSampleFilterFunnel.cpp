#include "sound/CSampleFilterFunnel.h"

CSampleFilterFunnel::~CSampleFilterFunnel() = default;
