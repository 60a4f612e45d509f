#pragma once

/* Orders to the client whose sources are more than a line (Client.c says what they mean). */

/* The process that this one has started. */
void startProcess(const char* how, const char* program);
void passOn(const char* line);
int rewriteScript(void);
int stopProcess(void);
/* A descriptor of it, as one of ours; -1 if the kernel refuses. */
int takeDescriptor(int number);
void reachIntoProcess(void);

int forgeLink(const char* program);
int forgeTexts(void);
