/* Gateway configuration store: a shared-memory object tree.
 * Declarations of the gateway's store library (libznsutils). */
#ifndef ZNSUTILS_H
#define ZNSUTILS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Type codes of parameter values. */
#define ZNS_TYPE_BYTE   0x00000001u /* uint8_t */
#define ZNS_TYPE_UINT16 0x00000002u /* uint16_t */
#define ZNS_TYPE_UINT32 0x00000004u /* uint32_t */
#define ZNS_TYPE_MAC    0x00000006u /* 6 bytes */
#define ZNS_TYPE_BOOL   0x20000001u /* uint8_t, 0 or 1 */
#define ZNS_TYPE_INT32  0x80000004u /* int32_t */
#define ZNS_TYPE_STRING 0xC0000000u /* NUL-terminated text in a fixed-width field */

/* Depth codes of the restore calls. */
#define ZNS_RESTORE_FACTORY    33
#define ZNS_RESTORE_LONG_RESET 34

/* A task's connection to the store. Open one per task; a thread that keeps
 * one for its life may. */
typedef struct zns_xml_handle zns_xml_handle_t;

/* Instance value: the instance numbers of the "{i}" segments of an object
 * path, outermost first. 0 names the single instance of an object without
 * "{i}" segments. Values are plain numbers: nothing to free. */
typedef uint64_t zns_ia_t;

typedef struct zns_param_list zns_param_list_t;

zns_xml_handle_t *zns_xmlShmInit(void);
void zns_xmlShmDeInit(zns_xml_handle_t **handle);

/* depth: number of instance numbers that format yields, 1 to 4, each 1 to 65535;
 * fields of the text are separated by ','. Returns 0 on a bad format. */
zns_ia_t znsXml_ConstructIAValue(const char *file, const char *func, int line, int depth, const char *format, ...)
    __attribute__((format(printf, 5, 6)));

/* Address of the object's record in shared memory, or NULL. Readers take no
 * lock: a text field always keeps a NUL within its width. */
void *znsXml_GetObjectByOID(zns_xml_handle_t *handle, uint32_t oid, zns_ia_t instance, int flag);
void *znsXml_getObjectByOID(zns_xml_handle_t *handle, uint32_t oid, int flag);
/* path names an object ("A.B.3.C") or one parameter of it ("A.B.3.C.Param"):
 * the address of the record or of the parameter's field. */
void *znsXml_GetObjectByName(zns_xml_handle_t *handle, const char *path, int flag);
/* Copies the value into out (the field's width for text). 0 or -1. */
int znsXml_getParameterByOID(zns_xml_handle_t *handle, uint32_t oid, zns_ia_t instance, const char *name, void *out);
/* The record's place in the store, for the writes below; 0 for a foreign address. */
uint32_t znsXmlGetPtrOffset(zns_xml_handle_t *handle, const void *object);

zns_param_list_t *newParameterList(void);
/* The value is copied at once: for text a NUL-terminated string, else the
 * value of the type's width. Of two entries of one name the later counts. 0 or -1. */
int setParameterToList(zns_param_list_t *list, const char *name, uint32_t type, const void *value);
void freeParameterList(zns_param_list_t *list);

/* Writes are all-or-nothing: an unknown name, a type that isn't the
 * parameter's or a text too long for its field fails the whole call, -1. */
int znsXml_setParameterIndirectByParaList(zns_xml_handle_t *handle, uint32_t offset, zns_param_list_t *list);
int znsXml_setParameterNnotify(zns_xml_handle_t *handle, uint32_t offset, zns_param_list_t *list, int notify);
int znsXml_setOneParameterByOIDIndirect(zns_xml_handle_t *handle, uint32_t oid, zns_ia_t instance, const char *name,
                                        uint32_t type, const void *value);

/* Adds the instance that instance names (its parent must exist). 0, or -1
 * when it exists already or can't be made. */
int znsXml_addObjectByOIDIAIndirect(zns_xml_handle_t *handle, uint32_t oid, zns_ia_t instance, int flag1, int flag2);
int znsXml_addObjectByOIDIWithParaListIndirect(zns_xml_handle_t *handle, uint32_t oid, zns_ia_t instance,
                                               zns_param_list_t *list);
/* Deletes the instance and everything below it. 0, or -1 when absent. */
int znsXml_delObjectByOIDIAIndirect(zns_xml_handle_t *handle, uint32_t oid, zns_ia_t instance);

/* Persist the whole tree atomically to flash. 0 or -1. */
int znsXml_SaveIndirect(zns_xml_handle_t *handle);
int znsXml_SaveNoReply(zns_xml_handle_t *handle);
/* Put the built-in defaults in place of the tree and persist them. */
int znsXml_restoreDefaultXml(int kind);

#ifdef __cplusplus
}
#endif
#endif
