#pragma once

#include <netinet/in.h>

// Sets O_NONBLOCK; true on success.
bool DplSocket_SetNonBlocking(int fd);
// Fills a zeroed IPv4 address with the port in network order; true when the text is a dotted address.
bool DplSocket_MakeIPv4Address(const char* text, int port, sockaddr_in* address);
