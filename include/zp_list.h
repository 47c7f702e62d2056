/*
 * zp_list.h - intrusive doubly linked list of the device's libraries.
 * A list head is a zp_list_t whose next and prev point at itself when empty.
 */
#ifndef ZP_LIST_H
#define ZP_LIST_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct zp_list {
    struct zp_list *next;
    struct zp_list *prev;
} zp_list_t;

static inline void zp_list_init(zp_list_t *head) { head->next = head->prev = head; }
static inline int zp_list_empty(const zp_list_t *head) { return head->next == head; }

static inline void zp_list_add_tail(zp_list_t *node, zp_list_t *head)
{
    node->prev = head->prev;
    node->next = head;
    head->prev->next = node;
    head->prev = node;
}

static inline void zp_list_del(zp_list_t *node)
{
    node->prev->next = node->next;
    node->next->prev = node->prev;
    node->next = node->prev = node;
}

#define zp_list_entry(ptr, type, member) ((type *)((char *)(ptr)-offsetof(type, member)))

#ifdef __cplusplus
}
#endif

#endif /* ZP_LIST_H */
