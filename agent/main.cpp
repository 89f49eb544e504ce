#include <cstdio>

#include "core/model/Protocol.h"

int main() {
    std::printf("%s\n", velmora::kDriverBrokerProtocol);
    return 0;
}
