// Intrusive circular doubly linked lists with a sentinel head.
//
// A list_head inside a record is its link; a list_head on its own is the sentinel of a list. Nothing here allocates, frees or
// locks: whoever unlinks a record owns it.
#ifndef LINUX_LIST_H
#define LINUX_LIST_H

#include <atomic>
#include <cstddef>

struct list_head {
    list_head *next;
    list_head *prev;
};

// Removals from all lists so far: who keeps a table beside a list learns from it that a record may be gone.
inline std::atomic<unsigned> list_removals{0};

inline void INIT_LIST_HEAD(list_head *head)
{
    head->next = head;
    head->prev = head;
}

inline bool list_empty(const list_head *head)
{
    return head->next == head;
}

inline void list_add_tail(list_head *node, list_head *head)
{
    list_head *last = head->prev;
    node->next = head;
    node->prev = last;
    last->next = node;
    head->prev = node;
}

// Unlinks the node and clears its links, so that a second removal is caught at once instead of damaging a list.
inline void list_del(list_head *node)
{
    node->prev->next = node->next;
    node->next->prev = node->prev;
    node->next = nullptr;
    node->prev = nullptr;
    list_removals.fetch_add(1, std::memory_order_relaxed);
}

// The record of the given type whose member is the node.
#define list_entry(node, type, member) (reinterpret_cast<type *>(reinterpret_cast<char *>(node) - offsetof(type, member)))

// Walks the nodes of a list; the current node must stay linked.
#define list_for_each(node, head) for (list_head *node = (head)->next; node != (head); node = node->next)

// Walks the nodes of a list; the current node may be unlinked and freed in the body.
#define list_for_each_safe(node, spare, head)                                                                                  \
    for (list_head *node = (head)->next, *spare = node->next; node != (head); node = spare, spare = spare->next)

#endif
