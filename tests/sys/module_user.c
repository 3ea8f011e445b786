/* A module that needs a function of another one. */
int vyx_test_base_answer(void);
int vyx_test_user_answer(void);
int vyx_test_user_answer(void) {
    return vyx_test_base_answer() + 1;
}
