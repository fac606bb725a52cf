// What must hold for the segment after every operation of the store.
#pragma once

// Fails the running test for each of these that does not hold:
//   every list is well-formed by the links that a reader follows, and its elements are those of the daemon;
//   no element is on a list and free, and none is lost (rule elements that were replaced aside);
//   a free element refers to no client, and a slot holds its own offset;
//   no index entry refers to a slot that is not published; no two slots have one owner;
//   the sorted lists are in strict key order, and no client has two interface or primary entries;
//   the instance maps and the counts agree with the entries.
void expect_store_sound();
