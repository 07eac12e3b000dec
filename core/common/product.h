// Identity of the product this report is about, fixed at build time.
#pragma once

namespace Common::Product {

inline constexpr const wchar_t* kMakerName = L"Brendix";
inline constexpr const wchar_t* kProductName = L"Cobaltine Home";
inline constexpr const wchar_t* kReportCaption = L"Brendix System Report";

inline constexpr int kVersionMajor = 24;
inline constexpr int kVersionMinor = 7;
inline constexpr int kVersionBuild = 38530;

}  // namespace Common::Product
