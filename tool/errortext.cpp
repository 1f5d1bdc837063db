#include "tool/errortext.h"

#include <cstring>

#include "hive/errorcodes.h"
#include "tool/visible.h"

namespace HiveCtl {

namespace {

namespace ErrorCode = Libraries::Files::Hive::ErrorCode;

struct Words {
    u32 code;
    const char* text;
};

constexpr Words words[] = {
    {ErrorCode::unsupported, "unsupported hive version, or wrong header checksum"},
    {ErrorCode::readOnly, "the hive is open read-only"},
    {ErrorCode::invalidObject, "the record is not valid"},
    {ErrorCode::allocationFailed, "no room could be made in the hive"},
    {ErrorCode::noSuchKey, "no such key"},
    {ErrorCode::noSuchValue, "no such value"},
    {ErrorCode::keyExists, "the key exists already"},
    {ErrorCode::badKeyName, "not a usable key name"},
    {ErrorCode::noListRoom, "no room could be made in the list of subkeys"},
    {ErrorCode::valueExists, "the value exists already"},
    {ErrorCode::valueNameTooLong, "the value name is too long"},
    {ErrorCode::moveTargetUnreadable, "the subkeys of the destination cannot be read"},
    {ErrorCode::badValueName, "the value name is too long, or has characters the code page lacks"},
    {ErrorCode::moveKeyExists, "the destination has a subkey of that name already"},
    {ErrorCode::moveValueExists, "the destination has a value of that name already"},
    {ErrorCode::moveNested, "a key cannot be moved into itself or below itself"},
    {ErrorCode::moveRoot, "the root key cannot be moved"},
    {ErrorCode::keyNotEmpty, "the key has subkeys"},
    {ErrorCode::wrongType, "the value is of another type"},
    {ErrorCode::tooLong, "the data is too long"},
    {ErrorCode::oneByteString, "the data is one byte, which is no text"},
    {ErrorCode::listNotTerminated, "the string list has no end"},
    {ErrorCode::wrongNumberLength, "the data has not the length of such a number"},
    {ErrorCode::shortNumberRead, "the number could not be read completely"},
    {ErrorCode::shortWrite, "the data could not be written completely"},
    {ErrorCode::treeTooDeep, "the key would lie more than 512 levels deep"},
    {ErrorCode::numberTooLarge, "the number does not fit into 32 bits"},
    {ErrorCode::badHive, "not a hive file, or one that was cut short"},
    {ErrorCode::badKeyRecord, "the key's record is damaged"},
    {ErrorCode::outsideRecord, "a write would leave its record"},
    {ErrorCode::unalignedOffset, "a record offset is damaged"},
    {ErrorCode::badSubkeyList, "the list of subkeys is damaged"},
    {ErrorCode::badValueList, "the list of values is damaged"},
    {ErrorCode::hashFailed, "the name could not be hashed"},
    {ErrorCode::inconsistentData, "the hive's cells are damaged"},
    {ErrorCode::searchFailed, "the subkeys could not be searched"},
    {ErrorCode::moveSearchFailed, "the subkeys of the destination could not be searched"},
    {ErrorCode::pathKeyFailed, "a key on the path could not be opened or made"},
    {ErrorCode::nullArgument, "an argument is missing"},
    {ErrorCode::wrongArgument, "wrong argument"},
    {ErrorCode::wrongElementSize, "operation not supported"},
};

std::string plainText(u32 code) {
    for (const Words& entry : words)
        if (entry.code == code) return entry.text;
    if (code > Error::systemBase && code < Error::systemBase + 0x1000)
        return std::strerror(static_cast<int>(code - Error::systemBase));
    return "unknown error";
}

}  // namespace

std::string errorText(u32 code) {
    if (code == ErrorCode::none) return "it cannot be read completely";
    return plainText(code) + " (" + hexNumber(code) + ")";
}

std::string systemErrorText(int errnoValue) {
    return errorText(Error::systemBase + static_cast<u32>(errnoValue));
}

}  // namespace HiveCtl
