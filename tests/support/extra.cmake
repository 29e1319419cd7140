# Settings read from the environment are checked in processes of their own, started with the
# variables set; in the ordinary run those tests skip themselves.
add_test(NAME support_config_env COMMAND ${_exe} --gtest_filter=ConfigEnv.*)
set_tests_properties(support_config_env PROPERTIES LABELS support ENVIRONMENT
  "KESTA_SUPPORT_TEST_LEVEL=5;KESTA_SUPPORT_TEST_WORD=abc;KESTA_SUPPORT_TEST_MIXED=5x;KESTA_SUPPORT_TEST_SPACED= 8 ;KESTA_SUPPORT_TEST_HUGE=99999999999999999999;KESTA_SUPPORT_TEST_NEGATIVE=-99999999999")

add_test(NAME support_log_env COMMAND ${_exe} --gtest_filter=LogEnv.*)
set_tests_properties(support_log_env PROPERTIES LABELS support ENVIRONMENT
  "KESTA_LOG=${CMAKE_CURRENT_BINARY_DIR}/support_log_env.log")
