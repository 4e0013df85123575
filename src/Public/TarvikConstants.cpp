#include <tarvik/TarvikConstants.h>

namespace tarvik {

const double TarvikVersionNumber = 1.0;
const unsigned char TarvikVersionString[] = "@(#)PROGRAM:Tarvik  PROJECT:Tarvik-1\n";

const unsigned long TarvikFileSizeLimit = 102400;

std::string TarvikDomainName = "api.tarvikhq.com";

const std::string TarvikNotificationShouldLaunchIssueSubmission =
    "TarvikNotificationShouldLaunchIssueSubmission";
const std::string TarvikNotificationDidShakeInSimulator = "TarvikNotificationDidShakeInSimulator";
const std::string TarvikNotificationDidFinishCaptureSession =
    "TarvikNotificationDidFinishCaptureSession";
const std::string TarvikNotificationDidCallToCopyAllFiles =
    "TarvikNotificationDidCallToCopyAllFiles";
const std::string TarvikNotificationDidFailSubmission = "TarvikNotificationDidFailSubmission";

const std::string TarvikUserPropertyIdentifierKey = "TarvikUserPropertyIdentifierKey";
const std::string TarvikUserPropertyUsernameKey = "TarvikUserPropertyUsernameKey";
const std::string TarvikUserPropertyFullNameKey = "TarvikUserPropertyFullNameKey";
const std::string TarvikUserPropertyEmailKey = "TarvikUserPropertyEmailKey";
const std::string TarvikUserPropertyCommentsKey = "TarvikUserPropertyCommentsKey";
const std::string TarvikUserPropertyVersionKey = "TarvikUserPropertyVersionKey";
const std::string TarvikUserPropertySessionLength = "TarvikUserPropertySessionLength";

}  // namespace tarvik
