#pragma once

/* What every attacking program has: whoever leads it speaks in lines on its standard input and gets
 * lines from its standard output; to the service it speaks as any client does. No program outlives
 * its deadline. */

#include <stddef.h>

enum { kNonceSize = 32, kLongestLine = 4096, kLongestScript = 61440, kLongestRequest = 65536 };

/* To be called first. */
void beginDialogue(void);
/* The next line without its end; 0 when there are no more. */
int hear(char line[kLongestLine]);
void say(const char* format, ...) __attribute__((format(printf, 1, 2)));
/* The same with the name of the error at hand. */
void sayFailure(const char* what);
/* "served" or "refused". */
void sayWhether(int served);

/* A socket, not closed on execution; -1 when there is nobody. */
int connectTo(const char* path);
/* The same with a socket that is there. 1 when connected. */
int connectSocket(int socket, const char* path);
/* 1 when the greeting came, 0 when the service closed instead. */
int greet(int socket, char nonce[kNonceSize]);
/* A request that has a script carried out; its length. */
size_t makeRequest(const char* script, const char nonce[kNonceSize], char* request);
int sendRequest(int socket, const char* script, const char nonce[kNonceSize]);
/* 1 when a reply came, 0 when the service closed instead. */
int awaitReply(int socket);
/* All of a client's part, from the connection to the reply. */
int haveCarriedOut(const char* socketPath, const char* script);
