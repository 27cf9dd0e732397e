// What starting and ending a program with the same libraries costs, and nothing else.
int main() {}
