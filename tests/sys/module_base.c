/* A module that offers a function to modules loaded later. */
int vyx_test_base_answer(void);
int vyx_test_base_answer(void) {
    return 42;
}
