#pragma once

namespace velmora {

// The protocol identifier every response carries and "version" prints.
inline constexpr const char* kDriverBrokerProtocol = "velmora.driver_broker.v1";

// The schema string of every action receipt.
inline constexpr const char* kNativeAppRuntimeReceiptSchema =
    "velmora.native_app_runtime_receipt.v1";

}  // namespace velmora
