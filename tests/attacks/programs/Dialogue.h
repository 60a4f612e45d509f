#pragma once

/* The part that all attacking programs share: each speaks in lines with the test that leads it, and
 * to the service as any client does. ATTACK_SOCKET names the service's socket, ATTACK_SCRIPT is the
 * script that the attacker wants to have carried out. No program outlives its deadline. */

#include <stddef.h>
#include <sys/un.h>

enum { kNonceSize = 32, kLongestScript = 61440, kLongestFrame = 65536 };

/* Has to be called first. */
void beginDialogue(void);
/* Writes this line if it is done; else "refused" and the name of the error at hand. */
void answer(int done, const char* line);

struct sockaddr_un addressOf(const char* path);
/* A socket, not closed on execution; -1 if nobody listens. */
int connectTo(const char* path, int type);
/* Whether all bytes were sent, with a descriptor unless it is negative. */
int sendBytes(int socket, char* bytes, size_t count, int descriptor);
/* The descriptor that comes with one byte; -1 if none does. */
int receiveDescriptor(int socket);

/* Whether the greeting came; 0 if the service closed instead. */
int greet(int socket, char nonce[kNonceSize]);
/* A request that has a script carried out; its length. */
size_t makeRequest(const char* script, const char nonce[kNonceSize], char request[kLongestFrame]);
/* Whether a reply came; 0 if the service closed instead. */
int awaitReply(int socket);
