// SPDX-License-Identifier: LicenseRef-qxkernel
/* A shared library for the tests of QxLib. */
int qx_test_answer(void) { return 42; }
