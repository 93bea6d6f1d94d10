#include "request_sizes.h"

#include "devices.h"

namespace record
{

namespace
{

struct RequestSize {
    unsigned long request;
    size_t size;
};

constexpr size_t kWord = 4;
constexpr size_t kPhyRecord = 12;         // {0, register, value}
constexpr size_t kMotorStatusRecord = 24; // six words

constexpr RequestSize kSizes[] = {
    {kCpldVersionGet, kWord},
    {kNetUserInterfaceGet, kWord},
    {kPhyRegisterRead, kPhyRecord},
    {kPhyRegisterWrite, kPhyRecord},
    {kPca9555Check, 0},
    {kPca9534Check, 0},
    {kChipIdGet, kWord},
    {kAdc0Get, kWord},
    {kPirStatusGet, kWord},
    {kMotorStatusGet, kMotorStatusRecord},
    {kIrCutStateGet, kWord},
    {kIrisStateGet, kWord},
    {kOcOutputSet, kWord},
    {kOcOutputGet, kWord},
    {kEcompassSelfTest, kWord},
    {kGyroStatusGet, kWord},
};

} // namespace

size_t request_size(unsigned long request)
{
    for (const RequestSize &row : kSizes)
        if (row.request == request)
            return row.size;
    return 0;
}

} // namespace record
