#include "image/DataType.h"

#include <cstring>

namespace {
constexpr float kFix16 = 1.52587890625e-05f; // 2^-16

// Truncation toward zero, then the low bits of the result.
template <class Stored>
void StoreTruncated(void* element, double value) {
    const int64_t whole = static_cast<int64_t>(value);
    const Stored low = static_cast<Stored>(whole);
    std::memcpy(element, &low, sizeof low);
}

template <class Stored>
Stored Load(const void* element) {
    Stored value;
    std::memcpy(&value, element, sizeof value);
    return value;
}

void ReadUChar(float* out, const void* e) {
    *out = Load<uint8_t>(e);
}
void ReadUShort(float* out, const void* e) {
    *out = Load<uint16_t>(e);
}
void ReadFloat(float* out, const void* e) {
    *out = Load<float>(e);
}
void ReadChar(float* out, const void* e) {
    *out = Load<int8_t>(e);
}
void ReadShort(float* out, const void* e) {
    *out = Load<int16_t>(e);
}
void ReadFix16S(float* out, const void* e) {
    *out = Load<int16_t>(e) * kFix16;
}
void ReadFix16U(float* out, const void* e) {
    *out = Load<uint16_t>(e) * kFix16;
}
void ReadDouble(float* out, const void* e) {
    *out = static_cast<float>(Load<double>(e));
}
void ReadLong(float* out, const void* e) {
    *out = static_cast<float>(Load<int64_t>(e));
}

void WriteUChar(void* e, float v) {
    StoreTruncated<uint8_t>(e, v);
}
void WriteUShort(void* e, float v) {
    StoreTruncated<uint16_t>(e, v);
}
void WriteFloat(void* e, float v) {
    std::memcpy(e, &v, sizeof v);
}
void WriteChar(void* e, float v) {
    StoreTruncated<int8_t>(e, v);
}
void WriteShort(void* e, float v) {
    StoreTruncated<int16_t>(e, v);
}
// Both directions of the signed fixed-point form scale by 2^-16; kept as it stands.
void WriteFix16S(void* e, float v) {
    StoreTruncated<int16_t>(e, v * kFix16);
}
void WriteFix16U(void* e, float v) {
    StoreTruncated<uint16_t>(e, v * 65536.0f);
}
void WriteDouble(void* e, float v) {
    const double d = v;
    std::memcpy(e, &d, sizeof d);
}
void WriteLong(void* e, float v) {
    StoreTruncated<int64_t>(e, v);
}

constexpr DQElementReader kReaders[kDQDataTypeCount] = {ReadUChar,  ReadUShort, ReadFloat,
                                                        ReadChar,   ReadShort,  ReadFix16S,
                                                        ReadFix16U, ReadDouble, ReadLong};
constexpr DQElementWriter kWriters[kDQDataTypeCount] = {WriteUChar,  WriteUShort, WriteFloat,
                                                        WriteChar,   WriteShort,  WriteFix16S,
                                                        WriteFix16U, WriteDouble, WriteLong};
} // namespace

DQElementReader DQGetElementReader(int dataType) {
    return dataType >= 0 && dataType < kDQDataTypeCount ? kReaders[dataType] : nullptr;
}

DQElementWriter DQGetElementWriter(int dataType) {
    return dataType >= 0 && dataType < kDQDataTypeCount ? kWriters[dataType] : nullptr;
}
