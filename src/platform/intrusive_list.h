// A circular doubly linked list whose links live in its elements, for recency orders and for
// registers of live objects. An element derives from ListNode once per list that it can be in,
// told apart by the tag. A node outside any list, and the head of an empty list, is linked to
// itself.
#pragma once

namespace fatvol {

template <class Tag>
struct ListNode {
    ListNode* next = this;
    ListNode* prev = this;

    ListNode() = default;
    ListNode(const ListNode&) = delete;
    ListNode& operator=(const ListNode&) = delete;
};

template <class Tag>
bool IsLinked(const ListNode<Tag>& node) {
    return node.next != &node;
}

// Takes a node out of its list; a node outside any list stays as it is.
template <class Tag>
void Unlink(ListNode<Tag>& node) {
    node.prev->next = node.next;
    node.next->prev = node.prev;
    node.next = node.prev = &node;
}

// Links an unlinked node at the end of the list behind `head`.
template <class Tag>
void LinkLast(ListNode<Tag>& head, ListNode<Tag>& node) {
    node.prev = head.prev;
    node.next = &head;
    head.prev->next = &node;
    head.prev = &node;
}

// Moves a node to the end of the list: for a recency order, the most recently used place.
template <class Tag>
void MoveLast(ListNode<Tag>& head, ListNode<Tag>& node) {
    Unlink(node);
    LinkLast(head, node);
}

}  // namespace fatvol
