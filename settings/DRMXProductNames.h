#pragma once

namespace DRMX_Settings
{

// The names from which folder names and settings keys are built.
inline constexpr const char* PRODUCT_NAME_SHORT = "Tidemix";
inline constexpr const char* PRODUCT_NAME_LONG = "Tidemix";
inline constexpr const char* PRODUCT_NAME_COMPACT = "Tidemix";
inline constexpr const char* COMPANY_NAME = "Drovane";

}  // namespace DRMX_Settings
