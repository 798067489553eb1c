#include "portable-core/DplSocket.h"

#include <arpa/inet.h>
#include <fcntl.h>

#include <cstring>

bool DplSocket_SetNonBlocking(int fd)
{
    const int flags = fcntl(fd, F_GETFL, 0);
    if (flags < 0)
    {
        return false;
    }
    return fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

bool DplSocket_MakeIPv4Address(const char* text, int port, sockaddr_in* address)
{
    if (address == nullptr)
    {
        return false;
    }
    memset(address, 0, sizeof(*address));
    address->sin_family = AF_INET;
    address->sin_port = htons(static_cast<uint16_t>(port));
    return text != nullptr && inet_pton(AF_INET, text, &address->sin_addr) == 1;
}
