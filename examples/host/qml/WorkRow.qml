import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

// Says what is being done, as long as it runs, and cancels it.
RowLayout {
    id: row

    property alias text: label.text
    property bool running: false

    signal cancelled

    opacity: running ? 1 : 0
    enabled: running
    spacing: 12

    Label {
        id: label
    }
    ProgressBar {
        Layout.fillWidth: true
        indeterminate: row.running
    }
    Button {
        objectName: "cancelWork"
        text: qsTr("Cancel")
        onClicked: row.cancelled()

        Shortcut {
            sequences: [StandardKey.Cancel]
            enabled: row.running && row.visible
            onActivated: row.cancelled()
        }
    }
}
