# Settings read once per process get a process of their own: the label export with the
# secondary reel columns switched off.
add_test(NAME record_update_reel_not_editable
  COMMAND ${_exe} --gtest_filter=RecordUpdate.*)
set_tests_properties(record_update_reel_not_editable PROPERTIES
  ENVIRONMENT "KESTA_DBV_REEL_FIELD_EDITABLE=0" LABELS ${dir})

# Column renames with the ampersand setting off: names keep their "&".
add_test(NAME record_fieldname_ampersands_kept
  COMMAND ${_exe} --gtest_filter=KestaSetting.*)
set_tests_properties(record_fieldname_ampersands_kept PROPERTIES
  ENVIRONMENT "KESTA_REMOVE_FIELDNAME_AMPERSANDS=0" LABELS ${dir})
