#include "microphones/DRMXFirmwareVersion.h"

#include <cstdio>
#include <fstream>

std::string DRMXFirmwareVersion::ToString() const
{
    char text[32];
    std::snprintf(text, sizeof(text), "%x.%x.%x", static_cast<unsigned>((version >> 8) & 0xF),
                  static_cast<unsigned>((version >> 4) & 0xF), static_cast<unsigned>(version & 0xF));
    return text;
}

DRMXFirmwareVersion DRMXFirmwareVersion::FromFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
    {
        return DRMXFirmwareVersion(0);
    }
    unsigned char head[12] = {};
    file.read(reinterpret_cast<char*>(head), sizeof(head));
    return DRMXFirmwareVersion(((head[6] & 0x0F) << 8) | ((head[8] & 0x0F) << 4) | (head[10] & 0x0F));
}
