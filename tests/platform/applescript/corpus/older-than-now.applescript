-- => true
(current date) > date "2020-01-01 00:00:00"
