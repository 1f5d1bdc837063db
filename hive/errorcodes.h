#pragma once

#include "platform/system/error.h"

/// The library's error codes, as callers find them in `Platform::Error::get()`. Part of the interface: never
/// renumber.
namespace Libraries::Files::Hive::ErrorCode {

using Platform::u32;

constexpr u32 none = 0;
constexpr u32 unsupported = 0x29;  ///< unsupported version, or wrong checksum
constexpr u32 readOnly = 0x1000;   ///< change on a read-only hive
constexpr u32 invalidObject = 0x1001;
constexpr u32 allocationFailed = 0x1002;
constexpr u32 noSuchKey = 0x1003;
constexpr u32 noSuchValue = 0x1004;
constexpr u32 keyExists = 0x1005;
constexpr u32 badKeyName = 0x1006;
constexpr u32 noListRoom = 0x1007;  ///< no room could be made in a subkey list
constexpr u32 valueExists = 0x1008;
constexpr u32 valueNameTooLong = 0x1009;      ///< on create
constexpr u32 moveTargetUnreadable = 0x100A;  ///< the destination's subkeys could not be loaded
constexpr u32 badValueName = 0x100B;          ///< on rename: too long or not encodable
constexpr u32 moveKeyExists = 0x100C;         ///< the destination has a subkey of that name
constexpr u32 moveValueExists = 0x100D;       ///< the destination has a value of that name
constexpr u32 moveNested = 0x100E;            ///< a key into itself or its own subtree
constexpr u32 moveRoot = 0x100F;
constexpr u32 keyNotEmpty = 0x1010;
constexpr u32 wrongType = 0x1011;
constexpr u32 tooLong = 0x1012;  ///< data longer than the caller's limit
constexpr u32 oneByteString = 0x1013;
constexpr u32 listNotTerminated = 0x1014;
constexpr u32 wrongNumberLength = 0x1015;
constexpr u32 shortNumberRead = 0x1016;
constexpr u32 shortWrite = 0x1017;
constexpr u32 treeTooDeep = 0x1018;     ///< the key would lie deeper than keys are read
constexpr u32 numberTooLarge = 0x1019;  ///< above 32 bits for a 32-bit type
constexpr u32 badHive = 0x2001;         ///< hive or root key invalid, wrong signature, file too small
constexpr u32 badKeyRecord = 0x2004;
constexpr u32 outsideRecord = 0x2005;  ///< write outside a record's body
constexpr u32 unalignedOffset = 0x2006;
constexpr u32 badSubkeyList = 0x2007;
constexpr u32 badValueList = 0x2008;
constexpr u32 hashFailed = 0x200A;
constexpr u32 inconsistentData = 0x200C;  ///< vk or data cells
constexpr u32 searchFailed = 0x200D;      ///< the subkey search of a create broke down
constexpr u32 moveSearchFailed = 0x200E;  ///< the subkey search of a move broke down
constexpr u32 pathKeyFailed = 0x8443;     ///< a path's key could not be created or looked up
constexpr u32 nullArgument = Platform::Error::nullArgument;
constexpr u32 wrongArgument = Platform::Error::wrongArgument;
constexpr u32 wrongElementSize = Platform::Error::notSupported;

/// Sets an error code; false, for the caller to return in turn.
inline bool fail(u32 code) {
    Platform::Error::set(code);
    return false;
}

}  // namespace Libraries::Files::Hive::ErrorCode
