// NSImageRep.h, as far as the macOS provider uses it.
#pragma once

#import <Foundation/Foundation.h>

@interface NSImageRep : NSObject <NSCopying>
@end
