// NSPathUtilities.h, as far as the agent uses it.
#pragma once

#import <Foundation/NSString.h>

NS_ASSUME_NONNULL_BEGIN

// The current user's temporary directory, with a trailing slash.
FOUNDATION_EXTERN NSString* NSTemporaryDirectory(void);

NS_ASSUME_NONNULL_END
