/* The operating system, as the services and the out-of-core files need it. No other folder calls the operating system; one folder of
   this room (posix/) implements the header for one family of systems. Nothing here prints or keeps memory of its own. */
#pragma once

#include <cstdint>

/* ---- environment ---- */
/* Value of an environment variable. in name; size bytes at buffer, >= 1. Returns the length of the value, or -1 when it is absent.
   The buffer receives the value and its end mark when length < size, and an empty text otherwise. */
int64_t platform_environment(const char *name, char *buffer, int64_t size);

/* ---- threads ---- */
/* Identifier of the calling thread, never 0; no other living thread has it, a later one may. */
uint64_t platform_thread_id();
/* Make room for one pointer-sized value a thread, 0 at first in every thread. Returns the slot, >= 0, or -1 when none is left. */
int32_t platform_thread_slot_create();
int64_t platform_thread_slot_get(int32_t slot);
void platform_thread_slot_set(int32_t slot, int64_t value);
/* Give the rest of the time slice away. */
void platform_yield();

/* ---- affinity: processors 0 to 63 as bits ---- */
/* Processors that the process may use, and those that the system has. False when the system does not tell. */
bool platform_affinity(uint64_t *process_mask, uint64_t *system_mask);
/* Put the calling thread on the processors of mask. Returns the mask it had before, or 0 after a failure that changed nothing. */
uint64_t platform_pin_thread(uint64_t mask);

/* ---- time and process ---- */
double platform_seconds();                        /* monotonic clock, seconds from an arbitrary start */
[[noreturn]] void platform_terminate(int status); /* end the process at once; streams are not flushed */
bool platform_is_terminal(int descriptor);        /* 1 standard output, 2 standard error */
int64_t platform_process_id();                    /* no other living process has it */
void platform_trim_memory(); /* give the system what the allocator holds free, where that can be asked for; some milliseconds */
/* Ask for large pages behind memory that is not touched yet; a wish, which nothing depends on. */
void platform_prefer_large_pages(void *memory, uint64_t bytes);
/* Get all pages of memory that is about to be written as a whole in one request, which takes less time than one fault for each; what is
   refused comes at the first touch. Contents stay. */
void platform_claim_pages(void *memory, uint64_t bytes);

/* ---- translated texts ---- */
/* Locale number of the calling thread (1033 English of the United States, 1031 German, ...); 1033 when it is not known. */
uint32_t platform_locale_number();
inline constexpr char platform_message_module[] = "wkl_msg.cat"; /* file name of a module of numbered texts */
/* Open a module; null when it is missing or of another kind. It stays open for the process. */
void *platform_message_open(const char *path);
/* Text of a message of the module, owned by the module and valid as long as it is open, or null. number >= 1. */
const char *platform_message_fetch(void *module, int32_t number);

/* ---- files that may pass 4 GB ----
   Functions return 0 or the system's error number, which platform_error_text words. Offsets and lengths in bytes. */
using platform_file = int64_t;
/* Create a file for reading and writing that only its owner may use. Fails when the name exists, a symbolic link included. */
int32_t platform_file_create(const char *path, platform_file *file);
/* Open an existing file for reading and writing; a symbolic link is refused. */
int32_t platform_file_open(const char *path, platform_file *file);
/* Read or write the whole of [offset, offset + length). Any number of threads at once. Reading past the end is an error (EIO). */
int32_t platform_file_read(platform_file file, int64_t offset, void *buffer, int64_t length);
int32_t platform_file_write(platform_file file, int64_t offset, const void *buffer, int64_t length);
/* From now on transfers pass by the system's memory of files where it allows that; else nothing changes. Offsets, lengths and addresses
   should then be multiples of platform_direct_unit; others go the ordinary way. */
inline constexpr int64_t platform_direct_unit = 4096;
void platform_file_go_direct(platform_file file);
/* A second way to an open file, to be closed as well. */
int32_t platform_file_duplicate(platform_file file, platform_file *other);
/* Transfers in the background; those of one way to a file happen one after the other. One that has begun must be waited for, by any thread,
   once; until then the record, the memory and the file stay. begin: false when the system takes no more at the moment; nothing has begun
   then. */
struct platform_transfer {
    alignas(16) unsigned char request[256]; /* of the system */
    platform_file file;
    int64_t offset, length;
    unsigned char *memory;
    bool writes;
};
bool platform_transfer_begin(platform_transfer *transfer, bool writes, platform_file file, int64_t offset, void *memory, int64_t length);
bool platform_transfer_ended(const platform_transfer *transfer);
int32_t platform_transfer_wait(platform_transfer *transfer);
int32_t platform_file_size(platform_file file, int64_t *size);
int32_t platform_file_close(platform_file file);
int32_t platform_file_remove(const char *path);
/* Words for an error number, cut to size bytes with the end mark; size >= 1. */
void platform_error_text(int32_t error, char *buffer, int64_t size);
