/** The hub as a shared worker: all tabs of the page have one, and it lives as long as one of them. */
import { Hub } from "./hub.js";

const [, role] = self.name.split("/");
const hub = new Hub(undefined, role);
hub.start();
self.onconnect = ({ ports: [port] }) => hub.connect(port);
