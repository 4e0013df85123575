#pragma once

#include <string>

namespace tarvik {

// The SDK's version as a number and as a "what" string.
extern const double TarvikVersionNumber;
extern const unsigned char TarvikVersionString[];

// Largest attachment, in bytes, that is uploaded as it is (ten times more for files that
// compress well).
extern const unsigned long TarvikFileSizeLimit;

// The API host every endpoint is built on. Set it before starting the SDK to use another
// service.
extern std::string TarvikDomainName;

// Notification names.
extern const std::string TarvikNotificationShouldLaunchIssueSubmission;
extern const std::string TarvikNotificationDidShakeInSimulator;
extern const std::string TarvikNotificationDidFinishCaptureSession;
extern const std::string TarvikNotificationDidCallToCopyAllFiles;
extern const std::string TarvikNotificationDidFailSubmission;

// Keys of the user and session properties sent with every submission.
extern const std::string TarvikUserPropertyIdentifierKey;
extern const std::string TarvikUserPropertyUsernameKey;
extern const std::string TarvikUserPropertyFullNameKey;
extern const std::string TarvikUserPropertyEmailKey;
extern const std::string TarvikUserPropertyCommentsKey;
extern const std::string TarvikUserPropertyVersionKey;
extern const std::string TarvikUserPropertySessionLength;

// How a report is started.
using TarvikProcessType = long long;
inline constexpr TarvikProcessType TarvikProcessTypeShake = 0;
inline constexpr TarvikProcessType TarvikProcessTypeManual = 1;
inline constexpr TarvikProcessType TarvikProcessTypeScreenshot = 2;

}  // namespace tarvik
