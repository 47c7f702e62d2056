// The PBM message decoder of the host QMI library on arbitrary bytes: every
// message kind and id, no read or write outside the buffers, and whatever
// decodes encodes again to bytes that decode to the same structure.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "../platform/qmi/pbm_wire.cpp"  // the codec is internal to the library

namespace {

const struct {
    int kind;
    uint16_t id;
} kMessages[] = {
    {qmi_wire::KIND_REQUEST, 0x0002},  {qmi_wire::KIND_RESPONSE, 0x0002},   {qmi_wire::KIND_REQUEST, 0x0004},
    {qmi_wire::KIND_RESPONSE, 0x0004}, {qmi_wire::KIND_INDICATION, 0x0004}, {qmi_wire::KIND_REQUEST, 0x0005},
    {qmi_wire::KIND_RESPONSE, 0x0005}, {qmi_wire::KIND_REQUEST, 0x0006},    {qmi_wire::KIND_RESPONSE, 0x0006},
    {qmi_wire::KIND_REQUEST, 0x0007},  {qmi_wire::KIND_RESPONSE, 0x0007},
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    const auto &m = kMessages[data[0] % (sizeof kMessages / sizeof kMessages[0])];
    uint32_t len = 0;
    qmi_wire::c_struct_len(m.kind, m.id, &len);
    std::vector<uint8_t> tlv(data + 1, data + size);  // exact size: overreads are caught
    std::vector<uint8_t> first(len), second(len);
    if (qmi_wire::decode(m.kind, m.id, tlv.data(), tlv.size(), first.data(), len) != 0)
        return 0;
    std::vector<uint8_t> again;
    if (qmi_wire::encode(m.kind, m.id, first.data(), len, again) != 0)
        __builtin_trap();
    if (qmi_wire::decode(m.kind, m.id, again.data(), again.size(), second.data(), len) != 0)
        __builtin_trap();
    std::vector<uint8_t> third;
    qmi_wire::encode(m.kind, m.id, second.data(), len, third);
    if (third != again)
        __builtin_trap();
    return 0;
}
