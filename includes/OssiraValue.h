// Values: one typed datum each, a datatype identifier and bytes.
#pragma once

#include "OssiraBase.h"

namespace Tavrik::Ossira
{

inline constexpr IID IID_IValue = {
    0x389A1174, 0xF380, 0x4CCA, {0xA1, 0x5E, 0x46, 0x24, 0x8F, 0x36, 0xAA, 0x4E}};

// The datatypes that the runtime itself stores and reads.
inline constexpr GUID DATATYPE_SINT8 = {
    0x2A3D838F, 0x4DFB, 0x4F63, {0x97, 0xA8, 0xF9, 0xF5, 0x19, 0x53, 0xA7, 0x2E}};
inline constexpr GUID DATATYPE_SINT16 = {
    0x4BAFC7DE, 0x6DA8, 0x4E32, {0x85, 0x25, 0x1D, 0xCE, 0x03, 0xA6, 0x11, 0x73}};
inline constexpr GUID DATATYPE_SINT32 = {
    0x524C24DD, 0xBCBE, 0x452A, {0x8C, 0x66, 0x8D, 0x0E, 0x00, 0x71, 0xEB, 0xDA}};
inline constexpr GUID DATATYPE_SINT64 = {
    0x8DC2C7FF, 0x0155, 0x4523, {0xA1, 0xDF, 0x2E, 0x92, 0xC5, 0xB9, 0xFB, 0x5F}};
inline constexpr GUID DATATYPE_FLOAT32 = {
    0x7DB084EB, 0xE4BE, 0x4471, {0x9A, 0xF8, 0xB4, 0x83, 0x9B, 0x3C, 0xB0, 0x18}};
inline constexpr GUID DATATYPE_FLOAT64 = {
    0xFE562FC0, 0xE8EF, 0x4716, {0xB3, 0xE2, 0x00, 0xCC, 0x38, 0xBD, 0x99, 0x15}};
inline constexpr GUID DATATYPE_PointSINT32 = {
    0x80B627A5, 0xA5B7, 0x444A, {0x92, 0xF3, 0xD2, 0xD2, 0x29, 0x34, 0x88, 0x57}};
inline constexpr GUID DATATYPE_PointFLOAT32 = {
    0xD7318E81, 0x8620, 0x4B8A, {0x96, 0xF0, 0x74, 0xA2, 0xD2, 0xBB, 0x8E, 0xC6}};

// 16 bytes as they stand in memory.
inline constexpr GUID DATATYPE_GUID = {
    0xA7667EE9, 0x3A90, 0x4233, {0xB9, 0x9B, 0x8D, 0xE6, 0x8A, 0x06, 0xEE, 0x5A}};

// UTF-16 on every platform, two bytes a code unit, without a terminating zero.
inline constexpr GUID DATATYPE_UniString = {
    0x5FC2151B, 0x2DB0, 0x4D7C, {0x94, 0x9E, 0xDC, 0x84, 0x9E, 0x7C, 0x63, 0x47}};

// 8-bit characters, without a terminating zero.
inline constexpr GUID DATATYPE_CharString = {
    0x7DA05295, 0xCD09, 0x4B68, {0xA1, 0x85, 0x2C, 0xC6, 0xD9, 0x12, 0x85, 0x41}};

// A value is empty when created. The read-only class ("Read-Only Value") can be set once: every
// further `SetValue` answers `E_ACCESSDENIED`. A value guards itself with a spin word; any thread
// may call. Data of at most 16 bytes needs no memory of its own, and setting data of the size that
// is already stored allocates nothing. Null in the place of a datatype answers `E_POINTER`.
struct IValue : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IValue;

    // Copies the datum out and answers its size in bytes; `size` must be exactly that, else
    // `E_INVALIDARG`. With null `data` and size 0 it only answers the size. An empty value answers
    // `E_FAIL`, another datatype than the stored one `E_INVALIDARG`, null `data` with a size
    // `E_POINTER`.
    virtual Result GetValue(const GUID& type, void* data, std::int32_t size) = 0;

    // Stores a datatype and `size` bytes. `GUID_Null` without data empties the value; with data it
    // empties the value too and answers `E_INVALIDARG`. Null `data` with a size answers `E_POINTER`
    // and a negative size `E_INVALIDARG`; exhausted memory answers `E_OUTOFMEMORY`. After the two
    // latter the value is what it was.
    virtual Result SetValue(const GUID& type, const void* data, std::int32_t size) = 0;

    // Writes the stored datatype, or `GUID_Null` for an empty value. Null answers `E_POINTER`.
    virtual Result GetType(GUID* type) = 0;

protected:
    ~IValue() = default;
};

} // namespace Tavrik::Ossira
